// JSON field access: readers, writers, printers and array setters on a raw
// json_object, each with a twin that applies it to a document's root.
// A writer always deletes before it adds, so a replaced key moves to the end.
#include <cstdlib>
#include <cstring>

#include "files/json_internal.h"

namespace {

using ku_json_internal::root_of;
using ku_json_internal::TreeRef;

// Compact JSON without the "\/" escape; json_object_to_file has no such flag,
// so saved files and printed texts differ in their slashes.
constexpr int kPrintFlags = JSON_C_TO_STRING_NOSLASHESCAPE;

char *dup_or_null(const char *text) noexcept
{
    return text != nullptr ? strdup(text) : nullptr;
}

// The value under key; JSON null, a null key and a non-object obj all give
// null, which every reader treats as absent.
json_object *value_of(json_object *obj, const char *key) noexcept
{
    return key != nullptr ? json_object_object_get(obj, key) : nullptr;
}

int get_int(json_object *obj, const char *key) noexcept
{
    json_object *value = value_of(obj, key);
    return value != nullptr ? json_object_get_int(value) : 0;
}

int64_t get_int64(json_object *obj, const char *key) noexcept
{
    json_object *value = value_of(obj, key);
    return value != nullptr ? json_object_get_int64(value) : 0;
}

const char *get_string(json_object *obj, const char *key) noexcept
{
    json_object *value = value_of(obj, key);
    return value != nullptr ? json_object_get_string(value) : nullptr;
}

// Replaces obj[key] with the value that make() returns (null: refused). The
// value is made before the old one is touched, so a refusal changes nothing.
template <typename MakeValue>
int replace_field(json_object *obj, const char *key, MakeValue make) noexcept
{
    if (key == nullptr || !json_object_is_type(obj, json_type_object)) {
        return -1;
    }
    json_object *value = make();
    if (value == nullptr) {
        return -1;
    }
    // Delete, then add: an add over the old entry would keep the key's place.
    json_object_object_del(obj, key);
    if (json_object_object_add(obj, key, value) != 0) {
        json_object_put(value);
        return -1;
    }
    return 0;
}

auto int_maker(int value) noexcept
{
    return [value]() noexcept { return json_object_new_int(value); };
}

auto int64_maker(int64_t value) noexcept
{
    return [value]() noexcept { return json_object_new_int64(value); };
}

auto string_maker(const char *value) noexcept
{
    return [value]() noexcept { return value != nullptr ? json_object_new_string(value) : nullptr; };
}

auto parse_maker(const char *text) noexcept
{
    return [text]() noexcept { return text != nullptr ? json_tokener_parse(text) : nullptr; };
}

int del_key(json_object *obj, const char *key) noexcept
{
    if (value_of(obj, key) == nullptr) {
        return 0;
    }
    json_object_object_del(obj, key);
    return 1;
}

const char *print_ref(json_object *obj) noexcept
{
    return json_object_to_json_string_ext(obj, kPrintFlags);
}

// A new object {field: value}, or null when any part of it can't be made.
template <typename MakeValue>
json_object *new_element(const char *field, MakeValue make) noexcept
{
    TreeRef value{make()};
    if (value.tree == nullptr) {
        return nullptr;
    }
    TreeRef element{json_object_new_object()};
    if (element.tree == nullptr || json_object_object_add(element.tree, field, value.tree) != 0) {
        return nullptr;
    }
    value.release();
    return element.release();
}

// The three ways of the array setters: replace in the element at index,
// else append to the existing array, else make the array.
template <typename MakeValue>
int set_array_field(ku_json_doc *doc, const char *key, int index, const char *field,
                    MakeValue make) noexcept
{
    json_object *root = root_of(doc);
    if (key == nullptr || field == nullptr || !json_object_is_type(root, json_type_object)) {
        return -1;
    }
    json_object *element = ku_json_array_get_obj(doc, key, index);
    if (element != nullptr) {
        return replace_field(element, field, make);
    }

    json_object *array = json_object_object_get(root, key);
    if (array != nullptr && !json_object_is_type(array, json_type_array)) {
        return -1;
    }
    TreeRef fresh{new_element(field, make)};
    if (fresh.tree == nullptr) {
        return -1;
    }
    if (array != nullptr) {
        if (json_object_array_add(array, fresh.tree) != 0) {
            return -1;
        }
        fresh.release();
        return 0;
    }
    TreeRef new_array{json_object_new_array()};
    if (new_array.tree == nullptr || json_object_array_add(new_array.tree, fresh.tree) != 0) {
        return -1;
    }
    fresh.release();
    if (json_object_object_add(root, key, new_array.tree) != 0) {
        return -1;
    }
    new_array.release();
    return 0;
}

}  // namespace

extern "C" {

// ---- Readers ----------------------------------------------------------------

KU_API int ku_json_obj_get_int(json_object *obj, const char *key) noexcept
{
    return get_int(obj, key);
}

KU_API int ku_json_get_int(ku_json_doc *doc, const char *key) noexcept
{
    return get_int(root_of(doc), key);
}

KU_API int64_t ku_json_obj_get_int64(json_object *obj, const char *key) noexcept
{
    return get_int64(obj, key);
}

KU_API int64_t ku_json_get_int64(ku_json_doc *doc, const char *key) noexcept
{
    return get_int64(root_of(doc), key);
}

// The borrowed texts are handed out as plain char pointers, as callers of
// this interface have always received them; they must not be written to.
KU_API char *ku_json_obj_get_string(json_object *obj, const char *key) noexcept
{
    return const_cast<char *>(get_string(obj, key));
}

KU_API char *ku_json_get_string(ku_json_doc *doc, const char *key) noexcept
{
    return const_cast<char *>(get_string(root_of(doc), key));
}

KU_API char *ku_json_obj_dup_string(json_object *obj, const char *key) noexcept
{
    return dup_or_null(get_string(obj, key));
}

KU_API char *ku_json_dup_string(ku_json_doc *doc, const char *key) noexcept
{
    return dup_or_null(get_string(root_of(doc), key));
}

KU_API json_object *ku_json_obj_get_obj(json_object *obj, const char *key) noexcept
{
    return value_of(obj, key);
}

KU_API json_object *ku_json_get_obj(ku_json_doc *doc, const char *key) noexcept
{
    return value_of(doc->root, key);
}

// ---- Writers ----------------------------------------------------------------

KU_API int ku_json_obj_set_int(json_object *obj, const char *key, int value) noexcept
{
    return replace_field(obj, key, int_maker(value));
}

KU_API int ku_json_set_int(ku_json_doc *doc, const char *key, int value) noexcept
{
    return replace_field(root_of(doc), key, int_maker(value));
}

KU_API int ku_json_obj_set_int64(json_object *obj, const char *key, int64_t value) noexcept
{
    return replace_field(obj, key, int64_maker(value));
}

KU_API int ku_json_set_int64(ku_json_doc *doc, const char *key, int64_t value) noexcept
{
    return replace_field(root_of(doc), key, int64_maker(value));
}

KU_API int ku_json_obj_set_string(json_object *obj, const char *key, const char *value) noexcept
{
    return replace_field(obj, key, string_maker(value));
}

KU_API int ku_json_set_string(ku_json_doc *doc, const char *key, const char *value) noexcept
{
    return replace_field(root_of(doc), key, string_maker(value));
}

KU_API int ku_json_obj_set_obj(json_object *obj, const char *key, const char *text) noexcept
{
    return replace_field(obj, key, parse_maker(text));
}

KU_API int ku_json_set_obj(ku_json_doc *doc, const char *key, const char *text) noexcept
{
    return replace_field(root_of(doc), key, parse_maker(text));
}

// ---- Printers ---------------------------------------------------------------

KU_API char *ku_json_obj_string_dup(json_object *obj) noexcept
{
    return dup_or_null(print_ref(obj));
}

KU_API char *ku_json_string_dup(ku_json_doc *doc) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? dup_or_null(print_ref(root)) : nullptr;
}

KU_API char *ku_json_obj_string_ref(json_object *obj) noexcept
{
    return const_cast<char *>(print_ref(obj));
}

KU_API char *ku_json_string_ref(ku_json_doc *doc) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? const_cast<char *>(print_ref(root)) : nullptr;
}

KU_API char *ku_json_obj_dup_obj_string(json_object *obj) noexcept
{
    return dup_or_null(json_object_get_string(obj));
}

// ---- Keys -------------------------------------------------------------------

KU_API int ku_json_obj_del_obj(json_object *obj, const char *key) noexcept
{
    return del_key(obj, key);
}

KU_API int ku_json_del_obj(ku_json_doc *doc, const char *key) noexcept
{
    return del_key(root_of(doc), key);
}

KU_API int ku_json_obj_key_exist(json_object *obj, const char *key) noexcept
{
    return value_of(obj, key) != nullptr ? 1 : 0;
}

KU_API int ku_json_is_key_exist(ku_json_doc *doc, const char *key) noexcept
{
    return value_of(root_of(doc), key) != nullptr ? 1 : 0;
}

// ---- Raw arrays -------------------------------------------------------------

KU_API int ku_json_object_is_array(json_object *obj) noexcept
{
    return json_object_is_type(obj, json_type_array) ? 1 : 0;
}

KU_API int ku_json_obj_array_get_length(json_object *obj) noexcept
{
    if (!json_object_is_type(obj, json_type_array)) {
        return 0;
    }
    return static_cast<int>(json_object_array_length(obj));
}

KU_API json_object *ku_json_obj_array_get_obj(json_object *obj, int index) noexcept
{
    if (index < 0 || !json_object_is_type(obj, json_type_array)) {
        return nullptr;
    }
    return json_object_array_get_idx(obj, static_cast<size_t>(index));
}

// ---- Array setters ----------------------------------------------------------

KU_API int ku_json_array_set_int(ku_json_doc *doc, const char *key, int index, const char *field,
                                 int value) noexcept
{
    return set_array_field(doc, key, index, field, int_maker(value));
}

KU_API int ku_json_array_set_string(ku_json_doc *doc, const char *key, int index, const char *field,
                                    const char *value) noexcept
{
    return set_array_field(doc, key, index, field, string_maker(value));
}

}  // extern "C"
