// A fuzzed JSON document changed by fuzzed writers and array setters whose values read
// back, saved and loaded back. Input: two bytes of text length, the text, the calls.
#include "fuzz_support.h"
#include "ku/json.h"

static const ku_test::TempDir &dir = fuzz_dir();

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    ku_json_doc *doc = ku_json_load_from_buf(in.c_text(in.number(2)).c_str());
    if (doc == nullptr) return 0;
    while (in.size > 0) {
        const std::string key = in.c_text(in.byte() % 4), text = in.c_text(in.byte() % 16);
        if (ku_json_set_string(doc, key.c_str(), text.c_str()) == 0) {
            fail_unless(text == ku_json_get_string(doc, key.c_str()));
        }
        if (ku_json_array_set_int(doc, text.c_str(), in.byte() % 4 - 1, key.c_str(), 1) == 0) {
            fail_unless(ku_json_array_get_num(doc, text.c_str()) > 0);
        }
    }
    const std::string path = dir.file("doc.json"), printed = ku_json_string_ref(doc);
    fail_unless(ku_json_file_save(doc, path.c_str()) == 0);
    ku_json_destroy(doc);
    doc = ku_json_load_from_file(path.c_str());  // a bare number's file has no end
    fail_unless(doc != nullptr || (printed[0] != '{' && printed[0] != '['));
    ku_json_destroy(doc);
    return 0;
}
