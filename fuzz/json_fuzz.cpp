// A fuzzed JSON text loaded with ku_json_load_from_buf, then a fuzzed
// sequence of readers, writers, key functions, array functions, printers and
// a save and reload, each checked against json-c used directly as the
// reference (the family is a thin layer over it, so the reference is what
// the layer must give: same values, same refusals, keys moved behind the
// others by every write, printed text stable from its first reparse on). A
// call may work on the top object through the document layer or on a nested
// value through the object layer; nested pointers are fetched anew for every
// call, since each write may end them. The harness reads the handle's tree through
// the library's internal layout: the reference needs the same json-c value.
//
// Input: two bytes of text length, the text, then the operations.
#include <json-c/json.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "files/json_internal.h"
#include "ku/json.h"

namespace {

constexpr int kNoSlashEscape = JSON_C_TO_STRING_NOSLASHESCAPE;

const TempDir dir("json");

std::string pick_key(Input &in)
{
    static const std::vector<std::string> keys = {"a", "b", "k", "arr", "", "x/y", "n"};
    const uint8_t b = in.byte();
    if (b < 0xE0) return keys[b % keys.size()];
    return in.c_text(b - 0xE0);
}

bool is_object(json_object *obj)
{
    return json_object_is_type(obj, json_type_object);
}

// The value under key, as the readers see it: null for an absent key, a
// JSON null, or an obj that is no object.
json_object *reference_get(json_object *obj, const std::string &key)
{
    return is_object(obj) ? json_object_object_get(obj, key.c_str()) : nullptr;
}

std::string print(json_object *obj)
{
    const char *text = json_object_to_json_string_ext(obj, kNoSlashEscape);
    fail_unless(text != nullptr);
    return text;
}

// The last key of an object in insertion order.
std::string last_key(json_object *obj)
{
    std::string last;
    json_object_object_foreach(obj, key, value)
    {
        (void)value;
        last = key;
    }
    return last;
}

// After a successful write the key holds the new value, behind all others.
void check_written(json_object *obj, const std::string &key)
{
    fail_unless(last_key(obj) == key);
}

struct Target {
    ku_json_doc *doc;      // non-null: the document layer on its top value
    json_object *obj;      // the value worked on (the top value, or nested)
};

void run_reader(Input &in, const Target &t, const std::string &key, uint8_t op)
{
    json_object *value = reference_get(t.obj, key);
    const char *k = key.c_str();
    switch (op % 5) {
    case 0:
        fail_unless((t.doc ? ku_json_get_int(t.doc, k) : ku_json_obj_get_int(t.obj, k)) ==
                    json_object_get_int(value));
        break;
    case 1:
        fail_unless((t.doc ? ku_json_get_int64(t.doc, k) : ku_json_obj_get_int64(t.obj, k)) ==
                    json_object_get_int64(value));
        break;
    case 2: {
        const char *got = t.doc ? ku_json_get_string(t.doc, k) : ku_json_obj_get_string(t.obj, k);
        fail_unless((got == nullptr) == (value == nullptr));
        if (got == nullptr) break;
        const std::string copy = got;  // borrowed: may be reprinted below
        fail_unless(copy == json_object_get_string(value));
        char *dup = t.doc ? ku_json_dup_string(t.doc, k) : ku_json_obj_dup_string(t.obj, k);
        fail_unless(dup != nullptr && copy == dup);
        free(dup);
        break;
    }
    case 3:
        fail_unless((t.doc ? ku_json_get_obj(t.doc, k) : ku_json_obj_get_obj(t.obj, k)) == value);
        break;
    case 4:
        fail_unless((t.doc ? ku_json_is_key_exist(t.doc, k) : ku_json_obj_key_exist(t.obj, k)) ==
                    (value != nullptr ? 1 : 0));
        break;
    }
    (void)in;
}

void run_writer(Input &in, const Target &t, const std::string &key, uint8_t op)
{
    const char *k = key.c_str();
    const bool writable = is_object(t.obj);
    int result = 0;
    switch (op % 4) {
    case 0: {
        const int value = static_cast<int>(static_cast<uint32_t>(in.number(4)));
        result = t.doc ? ku_json_set_int(t.doc, k, value) : ku_json_obj_set_int(t.obj, k, value);
        fail_unless(result == (writable ? 0 : -1));
        if (writable) fail_unless(json_object_get_int(reference_get(t.obj, key)) == value);
        break;
    }
    case 1: {
        const auto value = static_cast<int64_t>(in.number(8));
        result = t.doc ? ku_json_set_int64(t.doc, k, value) : ku_json_obj_set_int64(t.obj, k, value);
        fail_unless(result == (writable ? 0 : -1));
        if (writable) fail_unless(json_object_get_int64(reference_get(t.obj, key)) == value);
        break;
    }
    case 2: {
        const std::string value = in.c_text(in.byte());
        result = t.doc ? ku_json_set_string(t.doc, k, value.c_str())
                       : ku_json_obj_set_string(t.obj, k, value.c_str());
        fail_unless(result == (writable ? 0 : -1));
        if (writable) fail_unless(value == json_object_get_string(reference_get(t.obj, key)));
        break;
    }
    case 3: {
        const std::string text = in.c_text(in.byte());
        json_object *parsed = json_tokener_parse(text.c_str());
        const std::string before = writable ? print(t.obj) : "";
        result = t.doc ? ku_json_set_obj(t.doc, k, text.c_str()) : ku_json_obj_set_obj(t.obj, k, text.c_str());
        fail_unless(result == (writable && parsed != nullptr ? 0 : -1));
        if (result == 0) {
            fail_unless(print(reference_get(t.obj, key)) == print(parsed));
        } else if (writable) {
            fail_unless(print(t.obj) == before);  // refused: the object is unchanged
        }
        json_object_put(parsed);
        break;
    }
    }
    if (result == 0) check_written(t.obj, key);
}

void run_delete(const Target &t, const std::string &key)
{
    json_object *value = reference_get(t.obj, key);
    const bool held_null = is_object(t.obj) && value == nullptr &&
                           json_object_object_get_ex(t.obj, key.c_str(), nullptr);
    const int result = t.doc ? ku_json_del_obj(t.doc, key.c_str()) : ku_json_obj_del_obj(t.obj, key.c_str());
    fail_unless(result == (value != nullptr ? 1 : 0));
    if (is_object(t.obj)) {
        // A JSON null stays; anything else is gone.
        fail_unless(json_object_object_get_ex(t.obj, key.c_str(), nullptr) == held_null);
    }
}

void run_printers(const Target &t)
{
    char *dup = t.doc ? ku_json_string_dup(t.doc) : ku_json_obj_string_dup(t.obj);
    fail_unless(dup != nullptr);
    const std::string expected = print(t.obj);
    fail_unless(expected == dup);
    const char *ref = t.doc ? ku_json_string_ref(t.doc) : ku_json_obj_string_ref(t.obj);
    fail_unless(ref != nullptr && expected == ref);
    char *bare = ku_json_obj_dup_obj_string(t.obj);
    fail_unless(bare != nullptr && std::string(bare) == json_object_get_string(t.obj));
    free(bare);
    // The printed text loads again, and the text that prints is stable from
    // then on. It may differ from the first print once: json-c prints a
    // number by its source text cut at a dangling exponent ("040e" prints
    // "040"), and that text may read as another number ("040" is 40).
    if (ku_json_doc *again = ku_json_load_from_buf(dup)) {
        char *reprinted = ku_json_string_dup(again);
        fail_unless(reprinted != nullptr);
        ku_json_doc *third = ku_json_load_from_buf(reprinted);
        fail_unless(third != nullptr);
        char *stable = ku_json_string_dup(third);
        fail_unless(stable != nullptr && strcmp(stable, reprinted) == 0);
        free(stable);
        ku_json_destroy(third);
        free(reprinted);
        ku_json_destroy(again);
    } else {
        fail_unless(json_object_is_type(t.obj, json_type_null));
    }
    free(dup);
}

void run_arrays(Input &in, ku_json_doc *doc, json_object *root, const std::string &key, uint8_t op)
{
    const bool whole = (op & 0x10) != 0;  // the top value as the array
    const char *k = whole ? nullptr : key.c_str();
    json_object *array = whole ? root : reference_get(root, key);
    const bool is_array = json_object_is_type(array, json_type_array);
    const int length = is_array ? static_cast<int>(json_object_array_length(array)) : 0;
    const int index = static_cast<int>(static_cast<int8_t>(in.byte()));
    fail_unless(ku_json_array_get_num(doc, k) == length);
    json_object *element = is_array && index >= 0 && index < length
                               ? json_object_array_get_idx(array, static_cast<size_t>(index))
                               : nullptr;
    fail_unless(ku_json_array_get_obj(doc, k, index) == element);
    if (is_array) {
        fail_unless(ku_json_object_is_array(array) == 1);
        fail_unless(ku_json_obj_array_get_length(array) == length);
        fail_unless(ku_json_obj_array_get_obj(array, index) == element);
    } else {
        fail_unless(ku_json_object_is_array(array) == 0);
    }
    if (whole || (op & 0x20) == 0) return;

    // The setters: replace in place, append, or make the array.
    const std::string field = pick_key(in);
    const bool as_string = (op & 0x40) != 0;
    const std::string text = as_string ? in.c_text(in.byte()) : "";
    const int number = static_cast<int>(static_cast<uint32_t>(in.number(4)));
    const bool has_value = json_object_object_get_ex(root, key.c_str(), nullptr) && array != nullptr;
    int expected = -1;
    if (!is_object(root)) {
        expected = -1;
    } else if (element != nullptr) {
        expected = is_object(element) ? 0 : -1;
    } else if (has_value) {
        expected = is_array ? 0 : -1;
    } else {
        expected = 0;
    }
    const int result = as_string ? ku_json_array_set_string(doc, key.c_str(), index, field.c_str(), text.c_str())
                                 : ku_json_array_set_int(doc, key.c_str(), index, field.c_str(), number);
    fail_unless(result == expected);
    if (result != 0) return;
    json_object *now = reference_get(root, key);
    fail_unless(json_object_is_type(now, json_type_array));
    const int new_length = static_cast<int>(json_object_array_length(now));
    json_object *target = element;
    if (element == nullptr) {
        fail_unless(new_length == (is_array ? length + 1 : 1));
        target = json_object_array_get_idx(now, static_cast<size_t>(new_length - 1));
        fail_unless(json_object_object_length(target) == 1);
    } else {
        fail_unless(new_length == length);
    }
    json_object *stored = reference_get(target, field);
    if (as_string) {
        fail_unless(stored != nullptr && text == json_object_get_string(stored));
    } else {
        fail_unless(json_object_get_int(stored) == number);
    }
    check_written(target, field);
}

// Save to a file, load it back, and read a key through both file readers.
void run_save(ku_json_doc *doc, json_object *root, const std::string &key)
{
    const std::string path = dir.path + "/doc.json";
    fail_unless(ku_json_file_save(doc, path.c_str()) == 0);
    ku_json_doc *loaded = ku_json_load_from_file(path.c_str());
    if (loaded == nullptr) {
        // json-c writes no newline behind the text and reads a file with an
        // explicit length, so a bare number or boolean at the top stays
        // unfinished: such a document saves but does not load again
        // (json-c's behaviour, kept).
        fail_unless(json_object_is_type(root, json_type_int) || json_object_is_type(root, json_type_double) ||
                    json_object_is_type(root, json_type_boolean));
        return;
    }
    char *printed = ku_json_string_dup(loaded);
    fail_unless(printed != nullptr && print(root) == printed);
    free(printed);
    fail_unless(json_file_get_int(path.c_str(), key.c_str()) == json_object_get_int(reference_get(root, key)));
    fail_unless(ku_json_get_int(loaded, key.c_str()) == json_object_get_int(reference_get(root, key)));
    ku_json_destroy(loaded);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    const std::string text = in.c_text(in.number(2));
    const std::string first_key = pick_key(in);

    // The one-shot reader and the loader agree with json-c's parser.
    json_object *reference = json_tokener_parse(text.c_str());
    fail_unless(json_buf_get_int(text.c_str(), first_key.c_str()) ==
                json_object_get_int(reference_get(reference, first_key)));
    ku_json_doc *doc = ku_json_load_from_buf(text.c_str());
    fail_unless((doc == nullptr) == (reference == nullptr));
    if (doc != nullptr) fail_unless(print(doc->root) == print(reference));
    json_object_put(reference);
    if (doc == nullptr) {
        // The document layer's guard values for a null document.
        fail_unless(ku_json_get_int(nullptr, "a") == 0 && ku_json_get_string(nullptr, "a") == nullptr);
        fail_unless(ku_json_set_string(nullptr, "a", "b") == -1 && ku_json_del_obj(nullptr, "a") == 0);
        fail_unless(ku_json_string_dup(nullptr) == nullptr && ku_json_file_save(nullptr, "x") == -1);
        return 0;
    }

    while (in.size > 0) {
        const uint8_t op = in.byte();
        const std::string key = pick_key(in);
        json_object *root = doc->root;  // white box: the handle's tree, for the reference
        Target target{doc, root};
        if ((op & 0x80) != 0) {
            // The object layer on a nested value (fetched anew: writes end it).
            const std::string outer = pick_key(in);
            target = Target{nullptr, reference_get(root, outer)};
        }
        switch (op % 8) {
        case 0:
        case 1:
            run_reader(in, target, key, op >> 3);
            break;
        case 2:
        case 3:
            run_writer(in, target, key, op >> 3);
            break;
        case 4:
            run_delete(target, key);
            break;
        case 5:
            if (target.obj != nullptr) run_printers(target);
            break;
        case 6:
            run_arrays(in, doc, root, key, op);
            break;
        case 7:
            run_save(doc, root, key);
            break;
        }
    }
    fail_unless(ku_json_destroy(doc) == 0);
    return 0;
}
