// JSON documents and field access: the directory helper with `system` captured,
// loaders and saves, readers, writers, printers and array setters.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ku/json.h"
#include "support/alloc_control.h"
#include "support/capture.h"
#include "support/temp_dir.h"

static std::vector<std::string> commands;
static bool run_real_system = false;

// Wins over libc's for libku.so, which links dynamically.
extern "C" int system(const char *command)
{
    using system_fn = int (*)(const char *);
    commands.emplace_back(command);
    return run_real_system ? reinterpret_cast<system_fn>(dlsym(RTLD_NEXT, "system"))(command) : 0;
}

// A document that goes away with the test.
struct Doc {
    explicit Doc(ku_json_doc *made) : doc(made) {}
    explicit Doc(const char *text) : doc(ku_json_load_from_buf(text)) {}
    ~Doc() { ku_json_destroy(doc); }
    ku_json_doc *doc;
};

static std::string taken(char *copy)
{
    const std::string text = copy != nullptr ? copy : "<null>";
    free(copy);
    return text;
}

static std::string printed(ku_json_doc *doc) { return taken(ku_json_string_dup(doc)); }
static std::string printed(json_object *obj) { return taken(ku_json_obj_string_dup(obj)); }

// Results that must all be `expected`, named by their place in the list.
static void expect_all(int expected, std::initializer_list<long long> results)
{
    for (size_t row = 0; row < results.size(); ++row) {
        EXPECT_EQ(results.begin()[row], expected) << "row " << row;
    }
}

// One row per path edge: the command handed to the shell (none: no trace line).
TEST(Json, CreateDirRunsMkdirOnlyForAMissingDirectory)
{
    ku_test::TempDir dir;
    const std::string far = "/nonexistent-ku-test/", d229 = far + std::string(229, 'd');
    const std::pair<std::string, std::string> rows[] = {
        {"settings.json", ""},
        {"/settings.json", ""},
        {dir.file("settings.json"), ""},
        {dir.file("my dir/settings.json"), "mkdir -p " + dir.file("my dir")},  // unquoted
        {d229 + "/f", "mkdir -p " + d229.substr(0, 245)},                      // cut at 254 bytes
        {far + std::string(234, 'd'), ""},                                     // 255 bytes
    };
    for (const auto &[path, command] : rows) {
        commands.clear();
        ku_test::CaptureStderr err;
        ku_create_dir_for_file(path.c_str());
        const std::string log = err.finish();
        EXPECT_EQ(commands, command.empty() ? std::vector<std::string>{} : std::vector{command});
        const std::string trace = " create dir " + path.substr(0, path.rfind('/')) + "\n";
        EXPECT_TRUE(command.empty() ? log.empty() : log.ends_with(trace)) << path << ": " << log;
    }
}

TEST(Json, LoadReadOnceSaveAndDestroy)
{
    ku_test::TempDir dir;
    const std::string text = R"({"n": 42, "url": "h/p"})", path = dir.write("a.json", text);
    expect_all(42, {json_file_get_int(path.c_str(), "n"), json_buf_get_int(text.c_str(), "n")});
    for (const char *bad : {"{\"n\": 4", "null", "[{\"n\": 1}]"}) {  // the array is a document
        const std::string file = dir.write("bad.json", bad);
        Doc from_file(ku_json_load_from_file(file.c_str())), from_text(bad);
        expect_all(0, {json_file_get_int(file.c_str(), "n"), json_buf_get_int(bad, "n")});
        EXPECT_EQ(from_file.doc == nullptr, bad[0] != '[') << bad;
        EXPECT_EQ(from_text.doc == nullptr, bad[0] != '[') << bad;
    }
    expect_all(0, {json_buf_get_int(text.c_str(), "x"), json_buf_get_int(nullptr, "n"),
                   json_file_get_int(dir.file("absent").c_str(), "n"), ku_json_destroy(nullptr),
                   ku_json_destroy(ku_json_create())});
    EXPECT_EQ(ku_json_load_from_file(dir.file("absent").c_str()), nullptr);
    EXPECT_EQ(ku_json_load_from_buf(nullptr), nullptr);
    Doc made(ku_json_create()), doc(ku_json_load_from_file(path.c_str()));
    EXPECT_EQ(printed(made.doc), "{}");
    const std::string other = dir.file("o/other.json");
    expect_all(-1, {ku_json_file_save(made.doc, nullptr), ku_json_file_save(nullptr, other.c_str()),
                    ku_json_file_save(doc.doc, dir.path().c_str())});  // no path or doc, a dir
    run_real_system = true;
    EXPECT_EQ(ku_json_file_save(doc.doc, other.c_str()), 0);
    run_real_system = false;
    ASSERT_EQ(ku_json_set_int(doc.doc, "n", 2), 0);
    ASSERT_EQ(ku_json_file_save(doc.doc, nullptr), 0);  // still to its own path
    EXPECT_EQ(ku_test::read_file(other), R"({"n":42,"url":"h\/p"})");  // files escape the slash
    EXPECT_EQ(ku_test::read_file(path), R"({"url":"h\/p","n":2})");
}

// Each refused allocation on each way of an array setter gives -1 and the
// document as it was; any other outcome is the whole change. (The torture
// suite fails each call of the other functions in turn.)
TEST(Json, WithoutMemoryNothingIsLostOrLeaked)
{
    KU_REQUIRE_ALLOC_CONTROL();
    ku_test::AllocControl alloc;
    const char *const text = R"({"l":[{"f":0}],"e":[]})";
    for (auto [key, after] : {std::pair{"l", R"({"l":[{"f":0,"g":1}],"e":[]})"},
                              {"e", R"({"l":[{"f":0}],"e":[{"g":1}]})"},
                              {"new", R"({"l":[{"f":0}],"e":[],"new":[{"g":1}]})"}}) {
        for (long skip = 0; skip < 16; skip++) {
            Doc doc(text);
            alloc.fail(ku_test::kAnyAlloc, skip, 1);
            const int result = ku_json_array_set_int(doc.doc, key, 0, "g", 1);
            alloc.allow();
            const char *expected = result == -1 ? text : result == 0 ? after : "(only 0 or -1)";
            EXPECT_EQ(printed(doc.doc), expected) << key << " skip " << skip << ": " << result;
        }
    }
}

TEST(Json, ArraysAndReadersTreatNullLikeAnAbsentKey)
{
    Doc top("[10, 20]"), doc(R"({"empty": [], "list": [{"id": 7}, null], "text": "x"})");
    json_object *list = ku_json_get_obj(doc.doc, "list"), *text = ku_json_get_obj(doc.doc, "text");
    EXPECT_EQ(ku_json_object_is_array(list), 1);
    expect_all(2, {ku_json_array_get_num(top.doc, nullptr), ku_json_array_get_num(doc.doc, "list"),
                   ku_json_obj_array_get_length(list)});
    expect_all(0, {ku_json_array_get_num(doc.doc, "none"), ku_json_array_get_num(doc.doc, "empty"),
                   ku_json_array_get_num(doc.doc, "text"), ku_json_obj_array_get_length(text),
                   ku_json_object_is_array(text)});
    EXPECT_EQ(printed(ku_json_array_get_obj(top.doc, nullptr, 1)), "20");
    EXPECT_EQ(printed(ku_json_array_get_obj(doc.doc, "list", 0)), R"({"id":7})");
    for (int index : {1, 2, -1}) {  // a null element, past the end, negative
        EXPECT_EQ(ku_json_array_get_obj(doc.doc, "list", index), nullptr) << index;
        EXPECT_EQ(ku_json_obj_array_get_obj(list, index), nullptr) << index;
    }
    // A JSON null, an absent key, a null key and an obj that is no object read alike.
    Doc values(R"({"i": 5, "big": 1099511627776, "o": {"k": 1, "n": null}})");
    json_object *o = ku_json_get_obj(values.doc, "o"), *ten = ku_json_obj_array_get_obj(list, 0);
    EXPECT_EQ(ku_json_get_int64(values.doc, "big"), 1099511627776LL);
    EXPECT_EQ(ku_json_get_int(values.doc, "i"), 5);
    EXPECT_EQ(ku_json_obj_get_int64(o, "k"), 1);
    EXPECT_EQ(taken(ku_json_dup_string(values.doc, "i")), "5");
    for (auto [obj, key] : {std::pair{o, "n"}, {o, nullptr}, {ten, "k"}, {nullptr, "k"}}) {
        expect_all(0, {ku_json_obj_get_int(obj, key), ku_json_obj_get_int64(obj, key)});
        EXPECT_EQ(ku_json_obj_get_string(obj, key), nullptr);
        EXPECT_EQ(ku_json_obj_dup_string(obj, key), nullptr);
        EXPECT_EQ(ku_json_obj_get_obj(obj, key), nullptr);
    }
    expect_all(0, {ku_json_get_int(nullptr, "i"), ku_json_get_int64(values.doc, "x")});
}

TEST(Json, WritersPrintersAndKeys)
{
    Doc doc(R"({"a": 1, "b": 2, "c": 3, "n": null})"), array("[1]");
    // A replaced key moves behind all others; a refusal changes nothing.
    expect_all(0, {ku_json_set_int(doc.doc, "a", 1),  // same value: moves all the same
                   ku_json_set_string(doc.doc, "b", "x/y"),
                   ku_json_set_int64(doc.doc, "n", 5000000000LL),
                   ku_json_set_obj(doc.doc, "o", R"({"x": [true]})")});
    ASSERT_EQ(ku_json_obj_set_obj(ku_json_get_obj(doc.doc, "o"), "y", "\"t\""), 0);
    const std::string after = R"({"c":3,"a":1,"b":"x/y","n":5000000000,"o":{"x":[true],"y":"t"}})";
    EXPECT_EQ(printed(doc.doc), after);
    expect_all(-1, {ku_json_set_obj(doc.doc, "a", "{broken"), ku_json_set_obj(doc.doc, "a", "null"),
                    ku_json_set_obj(doc.doc, "a", nullptr), ku_json_set_int(doc.doc, nullptr, 1),
                    ku_json_set_string(doc.doc, "a", nullptr), ku_json_set_int(nullptr, "a", 1),
                    ku_json_set_int(array.doc, "a", 1), ku_json_obj_set_int(nullptr, "a", 1)});
    EXPECT_EQ(printed(doc.doc), after);
    EXPECT_EQ(printed(array.doc), "[1]");
    Doc keys(R"({"s": "a b", "o": {"k": [1, 2]}, "n": null})");
    json_object *s = ku_json_get_obj(keys.doc, "s"), *o = ku_json_get_obj(keys.doc, "o");
    EXPECT_EQ(printed(s), "\"a b\"");
    EXPECT_EQ(taken(ku_json_obj_dup_obj_string(s)), "a b");
    EXPECT_EQ(taken(ku_json_obj_dup_obj_string(o)), R"({ "k": [ 1, 2 ] })");
    EXPECT_STREQ(ku_json_obj_string_ref(o), R"({"k":[1,2]})");
    expect_all(1, {ku_json_is_key_exist(keys.doc, "o"), ku_json_obj_key_exist(o, "k"),
                   ku_json_obj_del_obj(o, "k"), ku_json_del_obj(keys.doc, "s")});
    // Gone, JSON null, no key, no document.
    expect_all(0, {ku_json_obj_key_exist(o, "k"), ku_json_is_key_exist(keys.doc, "s"),
                   ku_json_del_obj(keys.doc, "s"), ku_json_is_key_exist(keys.doc, "n"),
                   ku_json_del_obj(keys.doc, "n"), ku_json_is_key_exist(keys.doc, nullptr),
                   ku_json_del_obj(keys.doc, nullptr), ku_json_del_obj(nullptr, "o"),
                   ku_json_is_key_exist(nullptr, "o")});
    EXPECT_EQ(printed(keys.doc), R"({"o":{},"n":null})");
}

// No array: a new one of one element whatever the index; no element at the
// index (or a null one): appended; an element: its field is replaced and moves.
TEST(Json, ArraySetMakesAppendsOrReplaces)
{
    const std::tuple<const char *, const char *, int, const char *> rows[] = {
        {R"({"x": 0})", "l", 5, R"({"x":0,"l":[{"f":1}]})"},
        {R"({"l": [{"f": 0}]})", "l", 5, R"({"l":[{"f":0},{"f":1}]})"},
        {R"({"l": [{"f": 0, "b": 2}, {}]})", "l", 0, R"({"l":[{"b":2,"f":1},{}]})"},
        {R"({"l": [null]})", "l", 0, R"({"l":[null,{"f":1}]})"},
    };
    for (const auto &[before, key, index, after] : rows) {
        Doc doc(before);
        EXPECT_EQ(ku_json_array_set_int(doc.doc, key, index, "f", 1), 0) << before;
        EXPECT_EQ(printed(doc.doc), after);
    }
    Doc doc(R"({"s": "text", "l": [3, {"f": 1}]})"), array("[]");
    ASSERT_EQ(ku_json_array_set_string(doc.doc, "l", 1, "f", "v/w"), 0);
    const auto set = [](ku_json_doc *d, const char *key, int index, const char *field) {
        return ku_json_array_set_int(d, key, index, field, 1);
    };
    ku_json_doc *d = doc.doc;
    // A wrong shape, a missing document, key or field, a null string on each way.
    expect_all(-1, {set(d, "s", 0, "f"), set(d, "l", 0, "f"), set(d, nullptr, 0, "f"),
                    set(nullptr, "l", 0, "f"), set(array.doc, "l", 0, "f"), set(d, "l", 1, nullptr),
                    set(d, "l", 4, nullptr),
                    set(d, "x", 0, nullptr), ku_json_array_set_string(d, "l", 1, "f", nullptr),
                    ku_json_array_set_string(d, "l", 4, "f", nullptr),
                    ku_json_array_set_string(d, "x", 0, "f", nullptr)});
    EXPECT_EQ(printed(doc.doc), R"({"s":"text","l":[3,{"f":"v/w"}]})");
}
