// JSON documents and field access: the directory helper with `system`
// captured, loaders and saves, readers, writers, printers and array setters.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ku/json.h"
#include "support/alloc_control.h"
#include "support/capture.h"
#include "support/temp_dir.h"

using ku_test::read_file;

static std::vector<std::string> commands;
static bool run_real_system = false;

// Wins over libc's for libku.so, which links dynamically.
extern "C" int system(const char *command)
{
    using system_fn = int (*)(const char *);
    commands.emplace_back(command);
    return run_real_system ? reinterpret_cast<system_fn>(dlsym(RTLD_NEXT, "system"))(command) : 0;
}

namespace {

// A document that goes away with the test.
struct Doc {
    explicit Doc(ku_json_doc *made) : doc(made) {}
    explicit Doc(const char *text) : doc(ku_json_load_from_buf(text)) {}
    ~Doc() { ku_json_destroy(doc); }
    ku_json_doc *doc;
};

std::string taken(char *copy)
{
    const std::string text = copy != nullptr ? copy : "<null>";
    free(copy);
    return text;
}

std::string printed(ku_json_doc *doc) { return taken(ku_json_string_dup(doc)); }
std::string printed(json_object *obj) { return taken(ku_json_obj_string_dup(obj)); }

// Results that must all be -1, named by their place in the list.
void expect_refused(std::initializer_list<int> results)
{
    int row = 0;
    for (int result : results) {
        EXPECT_EQ(result, -1) << "row " << row++;
    }
}

struct Json : ::testing::Test {
    ku_test::TempDir dir;
};

}  // namespace

// One row per path edge: the command handed to the shell (none: no trace line).
TEST_F(Json, CreateDirRunsMkdirOnlyForAMissingDirectory)
{
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

TEST_F(Json, LoadReadOnceSaveAndDestroy)
{
    const std::string text = R"({"n": 42, "d": -3.9, "url": "h/p"})";
    const std::string path = dir.write("a.json", text);
    for (auto [key, value] : {std::pair{"n", 42}, {"x", 0}}) {
        EXPECT_EQ(json_file_get_int(path.c_str(), key), value) << key;
        EXPECT_EQ(json_buf_get_int(text.c_str(), key), value) << key;
    }
    for (const char *bad : {"{\"n\": 4", "null", "[{\"n\": 1}]"}) {
        const std::string file = dir.write("bad.json", bad);
        EXPECT_EQ(json_file_get_int(file.c_str(), "n"), 0) << bad;
        EXPECT_EQ(json_buf_get_int(bad, "n"), 0) << bad;
        if (bad[0] != '[') {  // a top array is a document
            EXPECT_EQ(ku_json_load_from_file(file.c_str()), nullptr) << bad;
            EXPECT_EQ(ku_json_load_from_buf(bad), nullptr) << bad;
        }
    }
    EXPECT_EQ(ku_json_load_from_file(dir.file("absent.json").c_str()), nullptr);
    EXPECT_EQ(ku_json_load_from_buf(nullptr), nullptr);
    EXPECT_EQ(json_buf_get_int(nullptr, "n"), 0);
    EXPECT_EQ(ku_json_destroy(nullptr), 0);
    Doc made(ku_json_create()), doc(ku_json_load_from_file(path.c_str()));
    EXPECT_EQ(printed(made.doc), "{}");
    const std::string other = dir.file("o/other.json");
    expect_refused({ku_json_file_save(made.doc, nullptr), ku_json_file_save(nullptr, other.c_str()),
                    ku_json_file_save(doc.doc, dir.path().c_str())});  // no path, no doc, a directory
    run_real_system = true;
    EXPECT_EQ(ku_json_file_save(doc.doc, other.c_str()), 0);
    run_real_system = false;
    ASSERT_EQ(ku_json_set_int(doc.doc, "n", 2), 0);
    ASSERT_EQ(ku_json_file_save(doc.doc, nullptr), 0);  // still to its own path
    EXPECT_EQ(read_file(other), R"({"n":42,"d":-3.9,"url":"h\/p"})");  // files escape the slash
    EXPECT_EQ(read_file(path), R"({"d":-3.9,"url":"h\/p","n":2})");
    EXPECT_EQ(ku_json_destroy(ku_json_create()), 0);
}

TEST_F(Json, WithoutMemoryNothingIsLostOrLeaked)
{
    KU_REQUIRE_ALLOC_CONTROL();
    const std::string path = dir.write("kept.json", R"({"old":1})");
    Doc doc(R"({"a": "old"})");
    ku_test::AllocControl alloc;
    alloc.fail(ku_test::kAnyAlloc, 0, -1);
    EXPECT_EQ(ku_json_file_save(doc.doc, path.c_str()), -1);
    EXPECT_EQ(ku_json_set_string(doc.doc, "a", "new"), -1);
    EXPECT_EQ(ku_json_create(), nullptr);
    alloc.fail(ku_test::kAnyAlloc, 1, -1);  // the handle, then nothing
    Doc bare(ku_json_create());
    alloc.allow();
    EXPECT_EQ(read_file(path), R"({"old":1})");
    EXPECT_STREQ(ku_json_get_string(doc.doc, "a"), "old");
    ASSERT_NE(bare.doc, nullptr);
    EXPECT_EQ(ku_json_file_save(bare.doc, path.c_str()), -1);
    EXPECT_EQ(ku_json_set_int(bare.doc, "a", 1), -1);
    EXPECT_EQ(ku_json_string_dup(bare.doc), nullptr);
    alloc.reset();
    ku_json_destroy(ku_json_load_from_buf("[1]"));
    alloc.fail(ku_test::kAnyAlloc, alloc.count(ku_test::kAnyAlloc) - 1, 1);  // the handle: last
    EXPECT_EQ(ku_json_load_from_buf("[1]"), nullptr);
}

TEST_F(Json, ArraysAtTopOrUnderAKey)
{
    Doc top("[10, 20]"), doc(R"({"empty": [], "list": [{"id": 7}, null], "text": "x"})");
    EXPECT_EQ(ku_json_array_get_num(top.doc, nullptr), 2);
    EXPECT_EQ(ku_json_array_get_num(doc.doc, "list"), 2);
    EXPECT_EQ(printed(ku_json_array_get_obj(top.doc, nullptr, 1)), "20");
    EXPECT_EQ(printed(ku_json_array_get_obj(doc.doc, "list", 0)), R"({"id":7})");
    json_object *list = ku_json_get_obj(doc.doc, "list"), *text = ku_json_get_obj(doc.doc, "text");
    for (const char *key : {"missing", "empty", "text"}) {
        EXPECT_EQ(ku_json_array_get_num(doc.doc, key), 0) << key;
        EXPECT_EQ(ku_json_array_get_obj(doc.doc, key, 0), nullptr) << key;
    }
    for (int index : {1, 2, -1}) {  // a null element, past the end, negative
        EXPECT_EQ(ku_json_array_get_obj(doc.doc, "list", index), nullptr) << index;
        EXPECT_EQ(ku_json_obj_array_get_obj(list, index), nullptr) << index;
    }
    EXPECT_EQ(ku_json_object_is_array(list), 1);
    EXPECT_EQ(ku_json_obj_array_get_length(list), 2);
    EXPECT_EQ(printed(ku_json_obj_array_get_obj(list, 0)), R"({"id":7})");
    EXPECT_EQ(ku_json_object_is_array(text), 0);
    EXPECT_EQ(ku_json_obj_array_get_length(text), 0);
    EXPECT_EQ(ku_json_obj_array_get_obj(text, 0), nullptr);
}

// A JSON null, an absent key, a null key and an obj that is no object read alike.
TEST_F(Json, ReadersTreatNullLikeAnAbsentKey)
{
    Doc doc(R"({"i": 5, "big": 1099511627776, "o": {"k": 1, "n": null}})"), array("[1]");
    EXPECT_EQ(ku_json_get_int(doc.doc, "i"), 5);
    EXPECT_EQ(ku_json_get_int64(doc.doc, "big"), 1099511627776LL);
    EXPECT_EQ(taken(ku_json_dup_string(doc.doc, "i")), "5");
    json_object *o = ku_json_get_obj(doc.doc, "o"), *one = ku_json_array_get_obj(array.doc, nullptr, 0);
    EXPECT_EQ(ku_json_obj_get_int64(o, "k"), 1);
    for (auto [obj, key] : {std::pair{o, "n"}, {o, nullptr}, {one, "k"}, {nullptr, "k"}}) {
        EXPECT_EQ(ku_json_obj_get_int(obj, key), 0);
        EXPECT_EQ(ku_json_obj_get_int64(obj, key), 0);
        EXPECT_EQ(ku_json_obj_get_string(obj, key), nullptr);
        EXPECT_EQ(ku_json_obj_dup_string(obj, key), nullptr);
        EXPECT_EQ(ku_json_obj_get_obj(obj, key), nullptr);
    }
    EXPECT_EQ(ku_json_get_int(nullptr, "i"), 0);
    EXPECT_EQ(ku_json_get_int64(doc.doc, "x"), 0);
    EXPECT_EQ(ku_json_get_string(doc.doc, "x"), nullptr);
    EXPECT_EQ(ku_json_dup_string(nullptr, "i"), nullptr);
}

TEST_F(Json, ReplacedKeyMovesBehindAllOthersAndRefusalsChangeNothing)
{
    Doc doc(R"({"a": 1, "b": 2, "c": 3, "n": null})"), array("[1]");
    ASSERT_EQ(ku_json_set_int(doc.doc, "a", 1), 0);  // same value: moves all the same
    ASSERT_EQ(ku_json_set_string(doc.doc, "b", "x/y"), 0);
    ASSERT_EQ(ku_json_set_int64(doc.doc, "n", 5000000000LL), 0);
    ASSERT_EQ(ku_json_set_obj(doc.doc, "o", R"({"x": [true]})"), 0);
    ASSERT_EQ(ku_json_obj_set_obj(ku_json_get_obj(doc.doc, "o"), "y", "\"t\""), 0);
    const std::string after = R"({"c":3,"a":1,"b":"x/y","n":5000000000,"o":{"x":[true],"y":"t"}})";
    EXPECT_EQ(printed(doc.doc), after);
    expect_refused({ku_json_set_obj(doc.doc, "a", "{broken"), ku_json_set_obj(doc.doc, "a", "null"),
                    ku_json_set_obj(doc.doc, "a", nullptr), ku_json_set_string(doc.doc, "a", nullptr),
                    ku_json_set_string(doc.doc, nullptr, "v"), ku_json_set_int(doc.doc, nullptr, 1),
                    ku_json_set_int64(doc.doc, nullptr, 1), ku_json_set_int(nullptr, "a", 1),
                    ku_json_set_int(array.doc, "a", 1), ku_json_obj_set_int(nullptr, "a", 1)});
    EXPECT_EQ(printed(doc.doc), after);
    EXPECT_EQ(printed(array.doc), "[1]");
}

TEST_F(Json, PrintersDeleteAndKeyTest)
{
    Doc doc(R"({"s": "a b", "o": {"k": [1, 2]}, "n": null})");
    json_object *s = ku_json_get_obj(doc.doc, "s"), *o = ku_json_get_obj(doc.doc, "o");
    EXPECT_EQ(printed(s), "\"a b\"");
    EXPECT_EQ(taken(ku_json_obj_dup_obj_string(s)), "a b");
    EXPECT_EQ(taken(ku_json_obj_dup_obj_string(o)), R"({ "k": [ 1, 2 ] })");
    EXPECT_EQ(printed(static_cast<json_object *>(nullptr)), "null");
    EXPECT_EQ(ku_json_obj_dup_obj_string(nullptr), nullptr);
    EXPECT_EQ(ku_json_string_ref(nullptr), nullptr);
    EXPECT_STREQ(ku_json_string_ref(doc.doc), R"({"s":"a b","o":{"k":[1,2]},"n":null})");
    EXPECT_STREQ(ku_json_obj_string_ref(o), R"({"k":[1,2]})");
    EXPECT_EQ(ku_json_is_key_exist(doc.doc, "o"), 1);
    EXPECT_EQ(ku_json_obj_key_exist(o, "k"), 1);
    EXPECT_EQ(ku_json_obj_key_exist(o, "s"), 0);
    EXPECT_EQ(ku_json_obj_del_obj(o, "k"), 1);
    EXPECT_EQ(ku_json_del_obj(doc.doc, "s"), 1);
    for (const char *key : {"s", "n", static_cast<const char *>(nullptr)}) {  // gone, null, none
        EXPECT_EQ(ku_json_del_obj(doc.doc, key), 0);
        EXPECT_EQ(ku_json_is_key_exist(doc.doc, key), 0);
    }
    EXPECT_EQ(ku_json_del_obj(nullptr, "o"), 0);
    EXPECT_EQ(ku_json_is_key_exist(nullptr, "o"), 0);
    EXPECT_EQ(printed(doc.doc), R"({"o":{},"n":null})");
}

// No array: a new one of one element whatever the index; no element at the
// index (or a null one): appended; an element: its field is replaced and moves.
TEST_F(Json, ArraySetMakesAppendsOrReplaces)
{
    const struct {
        const char *before, *key;
        int index;
        const char *string, *after;
    } rows[] = {
        {R"({"x": 0})", "l", 5, nullptr, R"({"x":0,"l":[{"f":1}]})"},
        {R"({"l": [{"f": 0}]})", "l", 5, nullptr, R"({"l":[{"f":0},{"f":1}]})"},
        {R"({"l": [{"f": 0, "b": 2}, {}]})", "l", 0, "v", R"({"l":[{"b":2,"f":"v"},{}]})"},
        {R"({"l": [null]})", "l", 0, "v", R"({"l":[null,{"f":"v"}]})"},
    };
    for (const auto &row : rows) {
        Doc doc(row.before);
        EXPECT_EQ(row.string ? ku_json_array_set_string(doc.doc, row.key, row.index, "f", row.string)
                             : ku_json_array_set_int(doc.doc, row.key, row.index, "f", 1),
                  0);
        EXPECT_EQ(printed(doc.doc), row.after);
    }
    // A wrong shape, a missing document, key or field, a null string on each way.
    Doc doc(R"({"s": "text", "l": [3, {"f": 1}]})"), array("[]");
    ku_json_doc *d = doc.doc;
    expect_refused({ku_json_array_set_int(d, "s", 0, "f", 1), ku_json_array_set_int(d, "l", 0, "f", 1),
                    ku_json_array_set_int(d, nullptr, 0, "f", 1),
                    ku_json_array_set_int(nullptr, "l", 0, "f", 1),
                    ku_json_array_set_int(array.doc, "l", 0, "f", 1),
                    ku_json_array_set_int(d, "l", 1, nullptr, 1),
                    ku_json_array_set_int(d, "l", 4, nullptr, 1),
                    ku_json_array_set_int(d, "x", 0, nullptr, 1),
                    ku_json_array_set_string(d, "l", 1, "f", nullptr),
                    ku_json_array_set_string(d, "l", 4, "f", nullptr),
                    ku_json_array_set_string(d, "x", 0, "f", nullptr)});
    EXPECT_EQ(printed(doc.doc), R"({"s":"text","l":[3,{"f":1}]})");
    EXPECT_EQ(printed(array.doc), "[]");
}

// Each refused allocation on each of the three ways gives -1 and leaves the
// document as it was; any other outcome is the whole change.
TEST_F(Json, ArraySetWithoutMemoryIsAllOrNothing)
{
    KU_REQUIRE_ALLOC_CONTROL();
    const char *const text = R"({"l":[{"f":0}],"e":[]})";
    const std::pair<const char *, const char *> rows[] = {
        {"l", R"({"l":[{"f":0,"g":1}],"e":[]})"},
        {"e", R"({"l":[{"f":0}],"e":[{"g":1}]})"},
        {"new", R"({"l":[{"f":0}],"e":[],"new":[{"g":1}]})"},
    };
    for (const auto &[key, after] : rows) {
        for (long skip = 0; skip < 16; skip++) {
            Doc doc(text);
            ku_test::AllocControl alloc;
            alloc.fail(ku_test::kAnyAlloc, skip, 1);
            const int result = ku_json_array_set_int(doc.doc, key, 0, "g", 1);
            alloc.allow();
            EXPECT_TRUE(result == 0 || result == -1) << result;
            EXPECT_EQ(printed(doc.doc), result == -1 ? text : after) << key << " skip " << skip;
        }
    }
}
