// JSON field access: readers, writers and the order they leave keys in, the
// printers and their flags, key removal, raw arrays and the array setters.
#include <gtest/gtest.h>

#include <json-c/json.h>

#include <cstdlib>
#include <string>

#include "ku/json.h"
#include "support/alloc_control.h"
#include "support/strdup_via_malloc.h"

using ku_test::AllocControl;

namespace {

std::string text_of(char *copy)
{
    std::string result = copy != nullptr ? copy : "(null)";
    free(copy);
    return result;
}

std::string printed(ku_json_doc *doc)
{
    return text_of(ku_json_string_dup(doc));
}

// A document parsed from `text`, destroyed at the end of the test.
class Doc {
public:
    explicit Doc(const char *text) : doc_(ku_json_load_from_buf(text)) {}
    ~Doc() { ku_json_destroy(doc_); }
    Doc(const Doc &) = delete;
    Doc &operator=(const Doc &) = delete;
    operator ku_json_doc *() const { return doc_; }
    std::string text() const { return printed(doc_); }

private:
    ku_json_doc *doc_;
};

}  // namespace

// --- readers ----------------------------------------------------------------

TEST(JsonRead, ValuesOfEachType)
{
    Doc doc(R"({"i": -12, "big": 5000000000, "s": "text", "o": {"x": 1}})");
    ASSERT_NE(doc, nullptr);
    EXPECT_EQ(ku_json_get_int(doc, "i"), -12);
    EXPECT_EQ(ku_json_get_int64(doc, "big"), 5000000000LL);
    EXPECT_EQ(ku_json_get_int64(doc, "i"), -12);
    EXPECT_STREQ(ku_json_get_string(doc, "s"), "text");
    json_object *inner = ku_json_get_obj(doc, "o");
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(ku_json_obj_get_int(inner, "x"), 1);
    EXPECT_EQ(ku_json_obj_get_obj(inner, "x"), json_object_object_get(inner, "x"));
}

TEST(JsonRead, OtherTypesAreConvertedByJsonC)
{
    Doc doc(R"({"d": 3.9, "nd": -3.9, "t": true, "f": false, "s": "42", "w": "abc",
               "o": {"a": 1}, "n": 7, "big": 5000000000})");
    ASSERT_NE(doc, nullptr);
    EXPECT_EQ(ku_json_get_int(doc, "d"), 3);
    EXPECT_EQ(ku_json_get_int(doc, "nd"), -3);
    EXPECT_EQ(ku_json_get_int(doc, "t"), 1);
    EXPECT_EQ(ku_json_get_int(doc, "f"), 0);
    EXPECT_EQ(ku_json_get_int(doc, "s"), 42);
    EXPECT_EQ(ku_json_get_int64(doc, "s"), 42);
    EXPECT_EQ(ku_json_get_int(doc, "w"), 0);
    EXPECT_EQ(ku_json_get_int(doc, "o"), 0);
    EXPECT_EQ(ku_json_get_int(doc, "big"), 2147483647);  // json-c clamps
    // A value that is no string reads as its JSON text.
    EXPECT_STREQ(ku_json_get_string(doc, "n"), "7");
    EXPECT_STREQ(ku_json_get_string(doc, "t"), "true");
    EXPECT_STREQ(ku_json_get_string(doc, "o"), R"({ "a": 1 })");
}

TEST(JsonRead, AbsentKeyAndJsonNullReadAlike)
{
    Doc doc(R"({"z": null, "a": 1})");
    ASSERT_NE(doc, nullptr);
    for (const char *key : {"z", "absent"}) {
        SCOPED_TRACE(key);
        EXPECT_EQ(ku_json_get_int(doc, key), 0);
        EXPECT_EQ(ku_json_get_int64(doc, key), 0);
        EXPECT_EQ(ku_json_get_string(doc, key), nullptr);
        EXPECT_EQ(ku_json_dup_string(doc, key), nullptr);
        EXPECT_EQ(ku_json_get_obj(doc, key), nullptr);
        EXPECT_EQ(ku_json_is_key_exist(doc, key), 0);
    }
}

TEST(JsonRead, NullOrNonObjectValueReadsAsAbsent)
{
    json_object *array = json_tokener_parse(R"([{"a": 1}])");
    ASSERT_NE(array, nullptr);
    for (json_object *obj : {array, static_cast<json_object *>(nullptr)}) {
        EXPECT_EQ(ku_json_obj_get_int(obj, "a"), 0);
        EXPECT_EQ(ku_json_obj_get_int64(obj, "a"), 0);
        EXPECT_EQ(ku_json_obj_get_string(obj, "a"), nullptr);
        EXPECT_EQ(ku_json_obj_dup_string(obj, "a"), nullptr);
        EXPECT_EQ(ku_json_obj_get_obj(obj, "a"), nullptr);
        EXPECT_EQ(ku_json_obj_key_exist(obj, "a"), 0);
        EXPECT_EQ(ku_json_obj_del_obj(obj, "a"), 0);
    }
    json_object_put(array);
}

TEST(JsonRead, DupStringIsAnOwnedCopy)
{
    Doc doc(R"({"s": "one"})");
    ASSERT_NE(doc, nullptr);
    char *copy = ku_json_dup_string(doc, "s");
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, ku_json_get_string(doc, "s"));
    // The copy outlives the value it came from.
    ASSERT_EQ(ku_json_set_string(doc, "s", "two"), 0);
    EXPECT_STREQ(copy, "one");
    free(copy);
}

TEST(JsonRead, NullDocumentGivesGuardValues)
{
    EXPECT_EQ(ku_json_get_int(nullptr, "a"), 0);
    EXPECT_EQ(ku_json_get_int64(nullptr, "a"), 0);
    EXPECT_EQ(ku_json_get_string(nullptr, "a"), nullptr);
    EXPECT_EQ(ku_json_dup_string(nullptr, "a"), nullptr);
    EXPECT_EQ(ku_json_set_int(nullptr, "a", 1), -1);
    EXPECT_EQ(ku_json_set_int64(nullptr, "a", 1), -1);
    EXPECT_EQ(ku_json_set_string(nullptr, "a", "v"), -1);
    EXPECT_EQ(ku_json_set_obj(nullptr, "a", "1"), -1);
    EXPECT_EQ(ku_json_string_dup(nullptr), nullptr);
    EXPECT_EQ(ku_json_string_ref(nullptr), nullptr);
    EXPECT_EQ(ku_json_del_obj(nullptr, "a"), 0);
    EXPECT_EQ(ku_json_is_key_exist(nullptr, "a"), 0);
}

// --- writers ----------------------------------------------------------------

TEST(JsonWrite, ReplacedKeyMovesToTheEnd)
{
    Doc doc(R"({"a": 1, "b": 2})");
    ASSERT_NE(doc, nullptr);
    ASSERT_EQ(ku_json_set_int(doc, "a", 1), 0);  // same value, still moved
    EXPECT_EQ(doc.text(), R"({"b":2,"a":1})");
    ASSERT_EQ(ku_json_set_int64(doc, "b", 5000000000LL), 0);
    EXPECT_EQ(doc.text(), R"({"a":1,"b":5000000000})");
    ASSERT_EQ(ku_json_set_string(doc, "a", "s"), 0);
    EXPECT_EQ(doc.text(), R"({"b":5000000000,"a":"s"})");
    ASSERT_EQ(ku_json_set_obj(doc, "b", R"({"x": [1, "y"]})"), 0);
    EXPECT_EQ(doc.text(), R"({"a":"s","b":{"x":[1,"y"]}})");
    ASSERT_EQ(ku_json_set_int(doc, "c", 3), 0);  // a new key goes last too
    EXPECT_EQ(doc.text(), R"({"a":"s","b":{"x":[1,"y"]},"c":3})");
}

TEST(JsonWrite, ObjectLayerWorksOnNestedObjects)
{
    Doc doc(R"({"net": {"ip": "10.0.0.1", "port": 80}, "z": 0})");
    ASSERT_NE(doc, nullptr);
    json_object *net = ku_json_get_obj(doc, "net");
    ASSERT_NE(net, nullptr);
    ASSERT_EQ(ku_json_obj_set_int(net, "ip", 1), 0);
    ASSERT_EQ(ku_json_obj_set_int64(net, "id", -5000000000LL), 0);
    ASSERT_EQ(ku_json_obj_set_string(net, "name", "eth0"), 0);
    ASSERT_EQ(ku_json_obj_set_obj(net, "port", "[8080]"), 0);
    EXPECT_EQ(doc.text(), R"({"net":{"ip":1,"id":-5000000000,"name":"eth0","port":[8080]},"z":0})");
}

TEST(JsonWrite, JsonNullValueIsReplacedAsUsual)
{
    Doc doc(R"({"z": null, "a": 1})");
    ASSERT_NE(doc, nullptr);
    ASSERT_EQ(ku_json_set_int(doc, "z", 5), 0);
    EXPECT_EQ(doc.text(), R"({"a":1,"z":5})");
}

TEST(JsonWrite, RefusalsLeaveTheObjectUnchanged)
{
    Doc doc(R"({"a": 1, "b": "x"})");
    ASSERT_NE(doc, nullptr);
    EXPECT_EQ(ku_json_set_int(doc, nullptr, 1), -1);
    EXPECT_EQ(ku_json_set_int64(doc, nullptr, 1), -1);
    EXPECT_EQ(ku_json_set_string(doc, nullptr, "v"), -1);
    EXPECT_EQ(ku_json_set_string(doc, "a", nullptr), -1);
    EXPECT_EQ(ku_json_set_string(doc, "new", nullptr), -1);
    EXPECT_EQ(ku_json_set_obj(doc, nullptr, "1"), -1);
    EXPECT_EQ(ku_json_set_obj(doc, "a", nullptr), -1);
    EXPECT_EQ(ku_json_set_obj(doc, "a", "{\"unclosed\": "), -1);
    EXPECT_EQ(ku_json_set_obj(doc, "a", "null"), -1);
    EXPECT_EQ(doc.text(), R"({"a":1,"b":"x"})");
}

TEST(JsonWrite, NonObjectTargetIsRefused)
{
    Doc list("[1, 2]");
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(ku_json_set_int(list, "a", 1), -1);
    EXPECT_EQ(ku_json_set_string(list, "a", "v"), -1);
    EXPECT_EQ(list.text(), "[1,2]");
    EXPECT_EQ(ku_json_obj_set_int(nullptr, "a", 1), -1);
    EXPECT_EQ(ku_json_obj_set_obj(nullptr, "a", "1"), -1);
}

TEST(JsonWrite, SetObjStoresAnyValue)
{
    Doc doc("{}");
    ASSERT_NE(doc, nullptr);
    ASSERT_EQ(ku_json_set_obj(doc, "n", "12"), 0);
    ASSERT_EQ(ku_json_set_obj(doc, "s", R"("q")"), 0);
    ASSERT_EQ(ku_json_set_obj(doc, "l", "[]"), 0);
    EXPECT_EQ(doc.text(), R"({"n":12,"s":"q","l":[]})");
    EXPECT_EQ(ku_json_get_int(doc, "n"), 12);
}

TEST(JsonWrite, FailedAddReleasesTheNewValue)
{
    KU_REQUIRE_ALLOC_CONTROL();
    ku_test::use_strdup_via_malloc();
    Doc doc(R"({"a": 1})");
    ASSERT_NE(doc, nullptr);
    {
        AllocControl alloc;
        // The value is made, the old one removed, then json-c can't copy the
        // key: the new value must not leak (the sanitizer run would see it).
        alloc.fail(ku_test::kAnyAlloc, 1, 1);
        EXPECT_EQ(ku_json_set_int(doc, "a", 2), -1);
    }
    EXPECT_EQ(ku_json_is_key_exist(doc, "a"), 0);
    {
        AllocControl alloc;
        alloc.fail(ku_test::kAnyAlloc, 0, 1);  // the value itself
        EXPECT_EQ(ku_json_set_int(doc, "b", 2), -1);
    }
    EXPECT_EQ(doc.text(), "{}");
}

// --- printers ---------------------------------------------------------------

TEST(JsonPrint, SlashesStayBareAndTheTextIsCompact)
{
    Doc doc(R"({ "path" : "/etc/app/a.json", "l": [ 1, 2 ] })");
    ASSERT_NE(doc, nullptr);
    const char *expected = R"({"path":"/etc/app/a.json","l":[1,2]})";
    EXPECT_EQ(doc.text(), expected);
    EXPECT_STREQ(ku_json_string_ref(doc), expected);
    json_object *root = ku_json_get_obj(doc, "l");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(text_of(ku_json_obj_string_dup(root)), "[1,2]");
    EXPECT_STREQ(ku_json_obj_string_ref(root), "[1,2]");
}

TEST(JsonPrint, StringDupIsACopyAndRefIsBorrowed)
{
    Doc doc(R"({"a": 1})");
    ASSERT_NE(doc, nullptr);
    char *copy = ku_json_string_dup(doc);
    const char *ref = ku_json_string_ref(doc);
    ASSERT_NE(copy, nullptr);
    ASSERT_NE(ref, nullptr);
    EXPECT_NE(copy, ref);
    EXPECT_STREQ(copy, ref);
    free(copy);
}

TEST(JsonPrint, StringValueWithAndWithoutQuotes)
{
    Doc doc(R"({"s": "a/b", "o": {"k": [1, "v"]}, "n": 3})");
    ASSERT_NE(doc, nullptr);
    json_object *s = ku_json_get_obj(doc, "s");
    json_object *o = ku_json_get_obj(doc, "o");
    json_object *n = ku_json_get_obj(doc, "n");
    ASSERT_NE(s, nullptr);
    ASSERT_NE(o, nullptr);
    ASSERT_NE(n, nullptr);
    EXPECT_EQ(text_of(ku_json_obj_string_dup(s)), R"("a/b")");
    EXPECT_EQ(text_of(ku_json_obj_dup_obj_string(s)), "a/b");
    // Any other value: JSON text in the spaced layout.
    EXPECT_EQ(text_of(ku_json_obj_dup_obj_string(o)), R"({ "k": [ 1, "v" ] })");
    EXPECT_EQ(text_of(ku_json_obj_dup_obj_string(n)), "3");
    EXPECT_EQ(ku_json_obj_dup_obj_string(nullptr), nullptr);
    EXPECT_EQ(text_of(ku_json_obj_string_dup(nullptr)), "null");
}

// --- keys -------------------------------------------------------------------

TEST(JsonKeys, DeleteGivesOneWhenSomethingWasRemoved)
{
    Doc doc(R"({"a": 1, "b": {"c": 2}, "z": null})");
    ASSERT_NE(doc, nullptr);
    EXPECT_EQ(ku_json_is_key_exist(doc, "b"), 1);
    EXPECT_EQ(ku_json_del_obj(doc, "b"), 1);
    EXPECT_EQ(ku_json_is_key_exist(doc, "b"), 0);
    EXPECT_EQ(ku_json_del_obj(doc, "b"), 0);
    EXPECT_EQ(ku_json_del_obj(doc, nullptr), 0);
    EXPECT_EQ(ku_json_is_key_exist(doc, nullptr), 0);
    // JSON null counts as nothing: the key stays.
    EXPECT_EQ(ku_json_del_obj(doc, "z"), 0);
    EXPECT_EQ(doc.text(), R"({"a":1,"z":null})");
}

TEST(JsonKeys, ObjectLayerKeys)
{
    json_object *obj = json_tokener_parse(R"({"a": 1, "b": 2})");
    ASSERT_NE(obj, nullptr);
    EXPECT_EQ(ku_json_obj_key_exist(obj, "a"), 1);
    EXPECT_EQ(ku_json_obj_key_exist(obj, "c"), 0);
    EXPECT_EQ(ku_json_obj_del_obj(obj, "a"), 1);
    EXPECT_EQ(ku_json_obj_key_exist(obj, "a"), 0);
    EXPECT_STREQ(ku_json_obj_string_ref(obj), R"({"b":2})");
    json_object_put(obj);
}

// --- raw arrays ---------------------------------------------------------------

TEST(JsonRawArray, TypeLengthAndElements)
{
    Doc doc(R"({"l": [1, null, "x"], "o": {}, "e": []})");
    ASSERT_NE(doc, nullptr);
    json_object *list = ku_json_get_obj(doc, "l");
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(ku_json_object_is_array(list), 1);
    EXPECT_EQ(ku_json_object_is_array(ku_json_get_obj(doc, "o")), 0);
    EXPECT_EQ(ku_json_object_is_array(nullptr), 0);
    EXPECT_EQ(ku_json_obj_array_get_length(list), 3);
    EXPECT_EQ(ku_json_obj_array_get_length(ku_json_get_obj(doc, "e")), 0);
    json_object *first = ku_json_obj_array_get_obj(list, 0);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(json_object_get_int(first), 1);
    EXPECT_EQ(ku_json_obj_array_get_obj(list, 1), nullptr);
    EXPECT_STREQ(json_object_get_string(ku_json_obj_array_get_obj(list, 2)), "x");
    EXPECT_EQ(ku_json_obj_array_get_obj(list, 3), nullptr);
    EXPECT_EQ(ku_json_obj_array_get_obj(list, -1), nullptr);
}

// --- array setters ----------------------------------------------------------

TEST(JsonArraySet, ThreeWaysOnAMissingKey)
{
    Doc doc(R"({"v": 1})");
    ASSERT_NE(doc, nullptr);
    // 3: no key yet, so it gets a one-element array; index 5 selects nothing.
    ASSERT_EQ(ku_json_array_set_int(doc, "list", 5, "f", 1), 0);
    EXPECT_EQ(doc.text(), R"({"v":1,"list":[{"f":1}]})");
    // 2: still no element 5, so a second one is appended.
    ASSERT_EQ(ku_json_array_set_int(doc, "list", 5, "f", 2), 0);
    EXPECT_EQ(doc.text(), R"({"v":1,"list":[{"f":1},{"f":2}]})");
    // 1: element 0 exists and its field is replaced in place.
    ASSERT_EQ(ku_json_array_set_int(doc, "list", 0, "f", 9), 0);
    EXPECT_EQ(doc.text(), R"({"v":1,"list":[{"f":9},{"f":2}]})");
    EXPECT_EQ(ku_json_array_get_num(doc, "list"), 2);
}

TEST(JsonArraySet, ExistingElementKeepsItsOtherFields)
{
    Doc doc(R"({"list": [{"f": 1, "g": "x"}, {"f": 2}]})");
    ASSERT_NE(doc, nullptr);
    ASSERT_EQ(ku_json_array_set_string(doc, "list", 0, "f", "one"), 0);
    ASSERT_EQ(ku_json_array_set_int(doc, "list", 1, "h", 3), 0);
    EXPECT_EQ(doc.text(), R"({"list":[{"g":"x","f":"one"},{"f":2,"h":3}]})");
}

TEST(JsonArraySet, EmptyArrayAppendsForAnyIndex)
{
    Doc doc(R"({"list": []})");
    ASSERT_NE(doc, nullptr);
    ASSERT_EQ(ku_json_array_set_int(doc, "list", 0, "f", 1), 0);
    Doc other(R"({"list": []})");
    ASSERT_NE(other, nullptr);
    ASSERT_EQ(ku_json_array_set_string(other, "list", -3, "s", "a"), 0);
    EXPECT_EQ(doc.text(), R"({"list":[{"f":1}]})");
    EXPECT_EQ(other.text(), R"({"list":[{"s":"a"}]})");
}

TEST(JsonArraySet, JsonNullElementCountsAsNoElement)
{
    Doc doc(R"({"list": [null, {"f": 1}]})");
    ASSERT_NE(doc, nullptr);
    ASSERT_EQ(ku_json_array_set_int(doc, "list", 0, "f", 7), 0);
    EXPECT_EQ(doc.text(), R"({"list":[null,{"f":1},{"f":7}]})");
}

TEST(JsonArraySet, JsonNullKeyGetsANewArrayInPlace)
{
    Doc doc(R"({"list": null, "v": 1})");
    ASSERT_NE(doc, nullptr);
    ASSERT_EQ(ku_json_array_set_string(doc, "list", 0, "s", "a/b"), 0);
    EXPECT_EQ(doc.text(), R"({"list":[{"s":"a/b"}],"v":1})");
}

TEST(JsonArraySet, RefusalsLeaveTheDocumentUnchanged)
{
    const char *text = R"({"list": [{"f": 1}, 5], "name": "x", "obj": {"0": {}}})";
    Doc doc(text);
    ASSERT_NE(doc, nullptr);
    const std::string before = doc.text();
    // A null field on each of the three ways.
    for (int index : {0, 7}) {
        EXPECT_EQ(ku_json_array_set_int(doc, "list", index, nullptr, 1), -1);
        EXPECT_EQ(ku_json_array_set_string(doc, "list", index, nullptr, "v"), -1);
    }
    EXPECT_EQ(ku_json_array_set_int(doc, "new", 0, nullptr, 1), -1);
    // A null string value on each way.
    EXPECT_EQ(ku_json_array_set_string(doc, "list", 0, "f", nullptr), -1);
    EXPECT_EQ(ku_json_array_set_string(doc, "list", 7, "f", nullptr), -1);
    EXPECT_EQ(ku_json_array_set_string(doc, "new", 0, "f", nullptr), -1);
    // A null key, a key holding no array, an element that is no object.
    EXPECT_EQ(ku_json_array_set_int(doc, nullptr, 0, "f", 1), -1);
    EXPECT_EQ(ku_json_array_set_int(doc, "name", 0, "f", 1), -1);
    EXPECT_EQ(ku_json_array_set_int(doc, "obj", 0, "f", 1), -1);
    EXPECT_EQ(ku_json_array_set_int(doc, "list", 1, "f", 1), -1);
    EXPECT_EQ(doc.text(), before);

    // The top value is no object.
    Doc list("[{\"f\": 1}]");
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(ku_json_array_set_int(list, "list", 0, "f", 2), -1);
    EXPECT_EQ(list.text(), R"([{"f":1}])");
}

TEST(JsonArraySet, OutOfMemoryLeavesTheDocumentUnchanged)
{
    KU_REQUIRE_ALLOC_CONTROL();
    ku_test::use_strdup_via_malloc();
    Doc doc(R"({"v": 1, "list": [{"f": 1}]})");
    ASSERT_NE(doc, nullptr);
    // Each allocation of the second and third ways in turn; a leak of the
    // half-built element or array would show in the sanitizer run.
    for (const char *key : {"list", "new"}) {
        const std::string before = doc.text();
        for (long skip = 0;; ++skip) {
            SCOPED_TRACE(std::string(key) + " skip " + std::to_string(skip));
            int result = 0;
            {
                AllocControl alloc;
                alloc.fail(ku_test::kAnyAlloc, skip, 1);
                result = ku_json_array_set_int(doc, key, 9, "f", 2);
            }
            if (result == 0) {
                ASSERT_GT(skip, 1) << "at least a value and an object were made";
                break;
            }
            EXPECT_EQ(result, -1);
            EXPECT_EQ(doc.text(), before);
        }
    }
    EXPECT_EQ(doc.text(), R"({"v":1,"list":[{"f":1},{"f":2}],"new":[{"f":2}]})");
}
