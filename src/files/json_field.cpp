// JSON field access: an object layer on raw json-c values and a document
// layer that applies it to a document's top value. Every writer deletes the
// old value before it adds the new one, so a replaced key moves to the end.
#include <cstdlib>
#include <cstring>

#include "files/json_internal.h"

namespace {

using ku_json_internal::root_of;

// Slashes stay bare in printed text; only a saved file escapes them.
constexpr int kPrintFlags = JSON_C_TO_STRING_NOSLASHESCAPE;

bool is_object(json_object *obj) noexcept
{
    return json_object_is_type(obj, json_type_object) != 0;
}

char *copy_of(const char *text) noexcept
{
    return text != nullptr ? strdup(text) : nullptr;
}

// Readers: json_object_object_get gives null for a null or non-object
// `obj`, an absent key and a JSON null value alike.
int get_int(json_object *obj, const char *key) noexcept
{
    json_object *value = json_object_object_get(obj, key);
    return value != nullptr ? json_object_get_int(value) : 0;
}

int64_t get_int64(json_object *obj, const char *key) noexcept
{
    json_object *value = json_object_object_get(obj, key);
    return value != nullptr ? json_object_get_int64(value) : 0;
}

const char *get_string(json_object *obj, const char *key) noexcept
{
    json_object *value = json_object_object_get(obj, key);
    return value != nullptr ? json_object_get_string(value) : nullptr;
}

// Puts `value` (just made, owned here; null when making it failed) under
// `key`. The old entry is deleted first: adding over it would keep its place
// in json-c's insertion order. If the add itself fails the value is
// released, and the old one is gone too.
int replace(json_object *obj, const char *key, json_object *value) noexcept
{
    if (value == nullptr) {
        return -1;
    }
    json_object_object_del(obj, key);
    if (json_object_object_add(obj, key, value) != 0) {
        json_object_put(value);
        return -1;
    }
    return 0;
}

// The refusals every writer shares. json-c's object calls would treat any
// other value as an object, and an array document is a valid document.
bool writable(json_object *obj, const char *key) noexcept
{
    return key != nullptr && is_object(obj);
}

json_object *new_string(const char *value) noexcept
{
    return json_object_new_string(value);
}

// Parsed text of any value; the JSON text null parses to a null pointer
// and so is refused like text that doesn't parse.
json_object *parsed(const char *text) noexcept
{
    return json_tokener_parse(text);
}

// A new object holding `field`: `value`; takes `value` (null: failed).
json_object *new_element(const char *field, json_object *value) noexcept
{
    if (value == nullptr) {
        return nullptr;
    }
    json_object *element = json_object_new_object();
    if (element == nullptr || json_object_object_add(element, field, value) != 0) {
        json_object_put(value);
        json_object_put(element);
        return nullptr;
    }
    return element;
}

// The three ways of the array setters. `set_field` replaces the field of an
// existing element; `make` makes the value for a new element.
template <typename Value>
int array_set(ku_json_doc *doc, const char *key, int index, const char *field, Value value,
              int (*set_field)(json_object *, const char *, Value),
              json_object *(*make)(Value)) noexcept
{
    json_object *root = doc->root;
    if (key == nullptr || field == nullptr || !is_object(root)) {
        return -1;
    }
    // 1: element `index` exists and is changed in place.
    if (json_object *element = ku_json_array_get_obj(doc, key, index)) {
        return set_field(element, field, value);
    }
    json_object *array = json_object_object_get(root, key);
    if (array != nullptr && !json_object_is_type(array, json_type_array)) {
        return -1;
    }
    json_object *element = new_element(field, make(value));
    if (element == nullptr) {
        return -1;
    }
    // 2: the array exists; the new element goes to its end, no fillers.
    if (array != nullptr) {
        if (json_object_array_add(array, element) != 0) {
            json_object_put(element);
            return -1;
        }
        return 0;
    }
    // 3: no array yet; `key` gets one holding the new element.
    array = json_object_new_array();
    if (array == nullptr) {
        json_object_put(element);
        return -1;
    }
    if (json_object_array_add(array, element) != 0) {
        json_object_put(element);
        json_object_put(array);
        return -1;
    }
    if (json_object_object_add(root, key, array) != 0) {
        json_object_put(array);
        return -1;
    }
    return 0;
}

}  // namespace

extern "C" {

// --- Readers ---------------------------------------------------------------

KU_API int ku_json_obj_get_int(json_object *obj, const char *key) noexcept
{
    return get_int(obj, key);
}

KU_API int ku_json_get_int(ku_json_doc *doc, const char *key) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? get_int(root, key) : 0;
}

KU_API int64_t ku_json_obj_get_int64(json_object *obj, const char *key) noexcept
{
    return get_int64(obj, key);
}

KU_API int64_t ku_json_get_int64(ku_json_doc *doc, const char *key) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? get_int64(root, key) : 0;
}

KU_API const char *ku_json_obj_get_string(json_object *obj, const char *key) noexcept
{
    return get_string(obj, key);
}

KU_API const char *ku_json_get_string(ku_json_doc *doc, const char *key) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? get_string(root, key) : nullptr;
}

KU_API char *ku_json_obj_dup_string(json_object *obj, const char *key) noexcept
{
    return copy_of(get_string(obj, key));
}

KU_API char *ku_json_dup_string(ku_json_doc *doc, const char *key) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? copy_of(get_string(root, key)) : nullptr;
}

KU_API json_object *ku_json_obj_get_obj(json_object *obj, const char *key) noexcept
{
    return json_object_object_get(obj, key);
}

KU_API json_object *ku_json_get_obj(ku_json_doc *doc, const char *key) noexcept
{
    // No test of `doc` here, by contract; a null tree reads as absent.
    return json_object_object_get(doc->root, key);
}

// --- Writers ---------------------------------------------------------------

KU_API int ku_json_obj_set_int(json_object *obj, const char *key, int value) noexcept
{
    return writable(obj, key) ? replace(obj, key, json_object_new_int(value)) : -1;
}

KU_API int ku_json_set_int(ku_json_doc *doc, const char *key, int value) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? ku_json_obj_set_int(root, key, value) : -1;
}

KU_API int ku_json_obj_set_int64(json_object *obj, const char *key, int64_t value) noexcept
{
    return writable(obj, key) ? replace(obj, key, json_object_new_int64(value)) : -1;
}

KU_API int ku_json_set_int64(ku_json_doc *doc, const char *key, int64_t value) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? ku_json_obj_set_int64(root, key, value) : -1;
}

KU_API int ku_json_obj_set_string(json_object *obj, const char *key, const char *value) noexcept
{
    if (value == nullptr || !writable(obj, key)) {
        return -1;
    }
    return replace(obj, key, new_string(value));
}

KU_API int ku_json_set_string(ku_json_doc *doc, const char *key, const char *value) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? ku_json_obj_set_string(root, key, value) : -1;
}

KU_API int ku_json_obj_set_obj(json_object *obj, const char *key, const char *text) noexcept
{
    if (text == nullptr || !writable(obj, key)) {
        return -1;
    }
    return replace(obj, key, parsed(text));
}

KU_API int ku_json_set_obj(ku_json_doc *doc, const char *key, const char *text) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? ku_json_obj_set_obj(root, key, text) : -1;
}

// --- Printers --------------------------------------------------------------

KU_API char *ku_json_obj_string_dup(json_object *obj) noexcept
{
    return copy_of(json_object_to_json_string_ext(obj, kPrintFlags));
}

KU_API char *ku_json_string_dup(ku_json_doc *doc) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? ku_json_obj_string_dup(root) : nullptr;
}

KU_API const char *ku_json_obj_string_ref(json_object *obj) noexcept
{
    return json_object_to_json_string_ext(obj, kPrintFlags);
}

KU_API const char *ku_json_string_ref(ku_json_doc *doc) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? ku_json_obj_string_ref(root) : nullptr;
}

KU_API char *ku_json_obj_dup_obj_string(json_object *obj) noexcept
{
    return copy_of(json_object_get_string(obj));
}

// --- Keys ------------------------------------------------------------------

KU_API int ku_json_obj_del_obj(json_object *obj, const char *key) noexcept
{
    // A JSON null value is found as nothing, so such a key stays.
    if (key == nullptr || json_object_object_get(obj, key) == nullptr) {
        return 0;
    }
    json_object_object_del(obj, key);
    return 1;
}

KU_API int ku_json_del_obj(ku_json_doc *doc, const char *key) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? ku_json_obj_del_obj(root, key) : 0;
}

KU_API int ku_json_obj_key_exist(json_object *obj, const char *key) noexcept
{
    return key != nullptr && json_object_object_get(obj, key) != nullptr ? 1 : 0;
}

KU_API int ku_json_is_key_exist(ku_json_doc *doc, const char *key) noexcept
{
    json_object *root = root_of(doc);
    return root != nullptr ? ku_json_obj_key_exist(root, key) : 0;
}

// --- Raw arrays ------------------------------------------------------------

KU_API int ku_json_object_is_array(json_object *obj) noexcept
{
    return json_object_is_type(obj, json_type_array) ? 1 : 0;
}

KU_API int ku_json_obj_array_get_length(json_object *obj) noexcept
{
    return static_cast<int>(json_object_array_length(obj));
}

KU_API json_object *ku_json_obj_array_get_obj(json_object *obj, int index) noexcept
{
    if (index < 0) {
        return nullptr;
    }
    return json_object_array_get_idx(obj, static_cast<size_t>(index));
}

// --- Array setters ---------------------------------------------------------

KU_API int ku_json_array_set_int(ku_json_doc *doc, const char *key, int index, const char *field,
                                 int value) noexcept
{
    return array_set<int>(doc, key, index, field, value, ku_json_obj_set_int,
                          json_object_new_int);
}

KU_API int ku_json_array_set_string(ku_json_doc *doc, const char *key, int index,
                                    const char *field, const char *value) noexcept
{
    if (value == nullptr) {
        return -1;
    }
    return array_set<const char *>(doc, key, index, field, value, ku_json_obj_set_string,
                                   new_string);
}

}  // extern "C"
