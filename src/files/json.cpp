// JSON documents: load, create, save and free the handle, and read its array
// shape. All parsing and printing is json-c's; the handle only adds the path
// that a save without an explicit target writes to.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "files/json_internal.h"
#include "ku/log.h"

namespace {

using ku_json_internal::root_of;
using ku_json_internal::TreeRef;

// ku_create_dir_for_file copies the path into this many bytes, so the longest
// path it can take whole is one less.
constexpr size_t kDirPathBuffer = 255;
// The mkdir command line is cut to kCommandBuffer - 1 bytes.
constexpr size_t kCommandBuffer = 255;

constexpr const char *kCreateDirTrace = "create dir %s\n";
constexpr const char *kMkdirCommand = "mkdir -p %s";

ku_json_doc *new_doc(json_object *root, char *path) noexcept
{
    auto *doc = static_cast<ku_json_doc *>(malloc(sizeof(ku_json_doc)));
    if (doc != nullptr) {
        doc->path = path;
        doc->root = root;
    }
    return doc;
}

int int_of_key(json_object *tree, const char *key) noexcept
{
    json_object *value = key != nullptr ? json_object_object_get(tree, key) : nullptr;
    return value != nullptr ? json_object_get_int(value) : 0;
}

// The array a document's array operations work on: the root for a null key,
// else the value under key. Null when absent or when the value is no array.
json_object *array_of(const ku_json_doc *doc, const char *key) noexcept
{
    json_object *root = root_of(doc);
    json_object *array = key == nullptr ? root : json_object_object_get(root, key);
    return json_object_is_type(array, json_type_array) ? array : nullptr;
}

}  // namespace

extern "C" {

KU_API void ku_create_dir_for_file(const char *path) noexcept
{
    // A path that doesn't fit the copy whole would name a wrong directory.
    const size_t length = path != nullptr ? strnlen(path, kDirPathBuffer) : kDirPathBuffer;
    if (length >= kDirPathBuffer) {
        return;
    }
    char dir[kDirPathBuffer];
    memcpy(dir, path, length + 1);

    char *last_slash = strrchr(dir, '/');
    // No slash: the current directory. Slash first: a file in "/".
    if (last_slash == nullptr || last_slash == dir) {
        return;
    }
    *last_slash = '\0';
    if (access(dir, F_OK) == 0) {
        return;
    }
    ku_trace(kCreateDirTrace, dir);

    char command[kCommandBuffer];
    if (snprintf(command, sizeof command, kMkdirCommand, dir) < 0) {
        return;
    }
    // A failed mkdir shows up as the caller's failed write.
    const int status = system(command);
    (void)status;
}

KU_API int json_file_get_int(const char *path, const char *key) noexcept
{
    if (access(path, F_OK) != 0) {
        return 0;
    }
    TreeRef tree{json_object_from_file(path)};
    return tree.tree != nullptr ? int_of_key(tree.tree, key) : 0;
}

KU_API int json_buf_get_int(const char *text, const char *key) noexcept
{
    if (text == nullptr) {
        return 0;
    }
    TreeRef tree{json_tokener_parse(text)};
    return tree.tree != nullptr ? int_of_key(tree.tree, key) : 0;
}

KU_API ku_json_doc *ku_json_load_from_file(const char *path) noexcept
{
    // Asking access first keeps json-c from printing its own complaint about a
    // missing file.
    if (access(path, F_OK) != 0) {
        return nullptr;
    }
    TreeRef tree{json_object_from_file(path)};
    if (tree.tree == nullptr) {
        return nullptr;
    }
    ku_json_doc *doc = new_doc(tree.tree, nullptr);
    if (doc == nullptr) {
        return nullptr;
    }
    tree.release();
    doc->path = strdup(path);
    return doc;
}

KU_API ku_json_doc *ku_json_load_from_buf(const char *text) noexcept
{
    if (text == nullptr) {
        return nullptr;
    }
    TreeRef tree{json_tokener_parse(text)};
    if (tree.tree == nullptr) {
        return nullptr;
    }
    ku_json_doc *doc = new_doc(tree.tree, nullptr);
    if (doc != nullptr) {
        tree.release();
    }
    return doc;
}

KU_API ku_json_doc *ku_json_create(void) noexcept
{
    ku_json_doc *doc = new_doc(nullptr, nullptr);
    if (doc != nullptr) {
        doc->root = json_object_new_object();
    }
    return doc;
}

KU_API int ku_json_file_save(ku_json_doc *doc, const char *path) noexcept
{
    json_object *root = root_of(doc);
    if (root == nullptr) {
        return -1;
    }
    const char *target = path != nullptr ? path : doc->path;
    if (target == nullptr) {
        return -1;
    }
    ku_create_dir_for_file(target);
    // json_object_to_file empties the file before it prints the tree, so a
    // print that runs out of memory would leave it empty. Printed once here
    // in the same layout, the tree keeps a buffer big enough for the second
    // print, which then needs no memory: a failure leaves the file alone.
    if (json_object_to_json_string_ext(root, JSON_C_TO_STRING_PLAIN) == nullptr) {
        return -1;
    }
    return json_object_to_file(target, root) < 0 ? -1 : 0;
}

KU_API int ku_json_destroy(ku_json_doc *doc) noexcept
{
    if (doc == nullptr) {
        return 0;
    }
    free(doc->path);
    if (doc->root != nullptr) {
        json_object_put(doc->root);
    }
    free(doc);
    return 0;
}

KU_API int ku_json_array_get_num(ku_json_doc *doc, const char *key) noexcept
{
    json_object *array = array_of(doc, key);
    return array != nullptr ? static_cast<int>(json_object_array_length(array)) : 0;
}

KU_API json_object *ku_json_array_get_obj(ku_json_doc *doc, const char *key, int index) noexcept
{
    json_object *array = array_of(doc, key);
    if (array == nullptr || index < 0 || json_object_array_length(array) == 0) {
        return nullptr;
    }
    return json_object_array_get_idx(array, static_cast<size_t>(index));
}

}  // extern "C"
