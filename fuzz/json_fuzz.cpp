// A fuzzed JSON text loaded as a document, changed by fuzzed writers, key and
// array calls, each read back through the readers, then printed and saved.
// The print must be JSON whose own print is stable (json-c may cut a number's
// source text once), and an object or array must load back from its file.
//
// Input: two bytes of text length, the text, then the calls.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz_support.h"
#include "ku/json.h"

static const TempDir dir("json");

// The print of `text` parsed as a document.
static std::string reprinted(const std::string &text)
{
    ku_json_doc *doc = ku_json_load_from_buf(text.c_str());
    fail_unless(doc != nullptr);
    const std::string out = ku_json_string_ref(doc);
    ku_json_destroy(doc);
    return out;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    ku_json_doc *doc = ku_json_load_from_buf(in.c_text(in.number(2)).c_str());
    if (doc == nullptr) return 0;
    while (in.size > 0) {
        const uint8_t op = in.byte() % 4;
        const std::string key = in.c_text(in.byte() % 4), text = in.c_text(in.byte() % 16);
        const char *k = key.c_str();
        const int number = static_cast<int>(in.number(4)), index = in.byte() % 4 - 1;
        if (op == 0 && ku_json_set_int(doc, k, number) == 0) {
            fail_unless(ku_json_get_int(doc, k) == number && ku_json_is_key_exist(doc, k) == 1);
        } else if (op == 1 && ku_json_set_string(doc, k, text.c_str()) == 0) {
            fail_unless(text == ku_json_get_string(doc, k));
        } else if (op == 2) {
            const int existed = ku_json_is_key_exist(doc, k);
            fail_unless(ku_json_del_obj(doc, k) == existed && ku_json_is_key_exist(doc, k) == 0);
        } else if (op == 3 && ku_json_array_set_int(doc, k, index, "f", number) == 0) {
            // Replaced in the element at index, or appended as the last one.
            json_object *last = ku_json_array_get_obj(doc, k, ku_json_array_get_num(doc, k) - 1);
            fail_unless(ku_json_obj_get_int(ku_json_array_get_obj(doc, k, index), "f") == number ||
                        ku_json_obj_get_int(last, "f") == number);
        }
    }
    const std::string printed = ku_json_string_ref(doc), path = dir.path + "/doc.json";
    fail_unless(reprinted(reprinted(printed)) == reprinted(printed));
    fail_unless(ku_json_file_save(doc, path.c_str()) == 0);
    ku_json_destroy(doc);
    if (printed[0] == '{' || printed[0] == '[') {
        doc = ku_json_load_from_file(path.c_str());
        fail_unless(doc != nullptr);
        ku_json_destroy(doc);
    }
    return 0;
}
