// JSON documents: a handle of an owned path copy and a json-c tree, its
// loaders and saver, the one-shot integer readers and the array shape.
// json-c does all parsing and printing: the handle only adds the path that
// a later save goes back to, and never tests the type of the top value.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "files/json_internal.h"
#include "ku/log.h"

namespace {

// Bytes of a path that ku_create_dir_for_file reads; the copy has one more
// byte for the terminator, so a longer path is simply read this far.
constexpr size_t kPathBytes = 255;
// snprintf size of the command: at most 254 bytes of "mkdir -p DIR".
constexpr size_t kCommandSize = 255;

ku_json_doc *new_doc(json_object *root) noexcept
{
    auto *doc = static_cast<ku_json_doc *>(malloc(sizeof(ku_json_doc)));
    if (doc == nullptr) {
        return nullptr;
    }
    doc->path = nullptr;
    doc->root = root;
    return doc;
}

// Wraps a parsed tree; the tree is released when the handle can't be made.
ku_json_doc *adopt_tree(json_object *tree) noexcept
{
    if (tree == nullptr) {
        return nullptr;
    }
    ku_json_doc *doc = new_doc(tree);
    if (doc == nullptr) {
        json_object_put(tree);
    }
    return doc;
}

// Reads `key` of a freshly parsed tree and releases the tree.
int take_int(json_object *tree, const char *key) noexcept
{
    if (tree == nullptr) {
        return 0;
    }
    json_object *value = json_object_object_get(tree, key);
    const int result = value != nullptr ? json_object_get_int(value) : 0;
    json_object_put(tree);
    return result;
}

// The array under `key` in the top value, or the top value itself for a
// null key; null when there is none or it is no array. Testing the type
// keeps a document whose field has the wrong shape from reaching json-c's
// array calls, which would read it as an array.
json_object *find_array(const ku_json_doc *doc, const char *key) noexcept
{
    json_object *array = key == nullptr ? doc->root : json_object_object_get(doc->root, key);
    return json_object_is_type(array, json_type_array) ? array : nullptr;
}

}  // namespace

extern "C" {

KU_API void ku_create_dir_for_file(const char *path) noexcept
{
    char dir[kPathBytes + 1];
    strncpy(dir, path, kPathBytes);
    dir[kPathBytes] = '\0';

    char *slash = strrchr(dir, '/');
    // No slash: the working directory. Slash first: a file in "/".
    if (slash == nullptr || slash == dir) {
        return;
    }
    *slash = '\0';
    if (access(dir, F_OK) == 0) {
        return;
    }
    ku_trace("create dir %s\n", dir);

    // A directory text of more than 245 bytes is cut with the command.
    char command[kCommandSize];
    if (snprintf(command, sizeof command, "mkdir -p %s", dir) < 0) {
        return;
    }
    // The status is not read: a directory that could not be made shows up
    // as the failed write that follows.
    const int status = system(command);
    (void)status;
}

KU_API int json_file_get_int(const char *path, const char *key) noexcept
{
    if (access(path, F_OK) != 0) {
        return 0;
    }
    return take_int(json_object_from_file(path), key);
}

KU_API int json_buf_get_int(const char *text, const char *key) noexcept
{
    if (text == nullptr) {
        return 0;
    }
    return take_int(json_tokener_parse(text), key);
}

KU_API ku_json_doc *ku_json_load_from_file(const char *path) noexcept
{
    if (access(path, F_OK) != 0) {
        return nullptr;
    }
    ku_json_doc *doc = adopt_tree(json_object_from_file(path));
    if (doc != nullptr) {
        // A failed copy still gives the handle; it can be saved elsewhere.
        doc->path = strdup(path);
    }
    return doc;
}

KU_API ku_json_doc *ku_json_load_from_buf(const char *text) noexcept
{
    if (text == nullptr) {
        return nullptr;
    }
    return adopt_tree(json_tokener_parse(text));
}

KU_API ku_json_doc *ku_json_create(void) noexcept
{
    ku_json_doc *doc = new_doc(nullptr);
    if (doc != nullptr) {
        doc->root = json_object_new_object();
    }
    return doc;
}

KU_API int ku_json_file_save(ku_json_doc *doc, const char *path) noexcept
{
    if (doc == nullptr || doc->root == nullptr) {
        return -1;
    }
    const char *target = path != nullptr ? path : doc->path;
    if (target == nullptr) {
        return -1;
    }
    ku_create_dir_for_file(target);
    return json_object_to_file(target, doc->root) < 0 ? -1 : 0;
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
    json_object *array = find_array(doc, key);
    return array != nullptr ? static_cast<int>(json_object_array_length(array)) : 0;
}

KU_API json_object *ku_json_array_get_obj(ku_json_doc *doc, const char *key, int index) noexcept
{
    json_object *array = find_array(doc, key);
    if (array == nullptr || json_object_array_length(array) == 0 || index < 0) {
        return nullptr;
    }
    return json_object_array_get_idx(array, static_cast<size_t>(index));
}

}  // extern "C"
