/* JSON documents and field access on json-c trees.
 *
 * A ku_json_doc is a handle on one json-c tree and, if it came from a file,
 * its own copy of that file's path. All parsing and printing is json-c's.
 * Nothing here writes a diagnostic line except ku_create_dir_for_file's one
 * trace line; failure is told by the result alone.
 *
 * json-c's values appear as `struct json_object *`. The type is declared
 * here only by its tag, so that including this header needs neither json-c's
 * headers nor its include path; code that works on the values itself
 * includes <json-c/json.h>, whose `json_object` is the very same type.
 *
 * Ownership: a `struct json_object *` handed out here is borrowed. It points
 * into the tree, is never released by the caller, and ends when its value is
 * replaced or removed or the document is destroyed. Text is either borrowed
 * (the *_get_string and *_string_ref functions; see each) or a malloc copy
 * that the caller frees with free().
 *
 * json-c keeps an object's keys in order of insertion. Every writer removes
 * the old value before it adds the new one, so a replaced key moves behind
 * all other keys in the printed and saved text, even when its value did not
 * change.
 *
 * A JSON null value reads like an absent key everywhere: the getters give 0
 * or null, the key "does not exist" and cannot be removed (it stays), and a
 * writer replaces it as usual.
 *
 * A handle and its tree belong to one thread at a time; even the printers
 * change the tree, since they write into the value's print buffer. */
#ifndef KU_JSON_H
#define KU_JSON_H

#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

struct json_object;

/* Opaque document handle: its own path copy (or none) and a json-c tree. */
typedef struct ku_json_doc ku_json_doc;

/* --- Documents ----------------------------------------------------------- */

/* Makes the directory part of the file path `path` by running
 * "mkdir -p DIR" through system(), after the trace line "create dir DIR".
 * Nothing runs, and nothing is written, when the path has no slash, when its
 * only slash is its first byte (a file in /), or when DIR already exists.
 * DIR reaches the shell unquoted: a blank splits it into two arguments and
 * shell characters are interpreted, so pass plain paths only. The command is
 * cut at 254 bytes, i.e. a DIR of more than 245 bytes is cut too. The shell's
 * status is not read; a failure shows when the file is written. `path` should
 * have at most 254 bytes: of a longer path only the first 255 bytes are read,
 * so DIR comes from the last slash among them and is the wanted directory or
 * one of its parents. Blocks until the shell has finished. */
KU_API void ku_create_dir_for_file(const char *path) KU_NOEXCEPT;

/* Reads the integer field `key` of the top object of the JSON file `path`
 * (json-c's conversions: a double is cut, a boolean gives 0 or 1, a numeric
 * string is parsed, anything else gives 0). Gives 0 on every failure: a
 * missing or invalid file, a missing key, a top value that is no object. A
 * stored 0 cannot be told from a failure. `path` and `key` must not be null. */
KU_API int json_file_get_int(const char *path, const char *key) KU_NOEXCEPT;

/* As json_file_get_int, on the JSON text `text`; a null text gives 0. */
KU_API int json_buf_get_int(const char *text, const char *key) KU_NOEXCEPT;

/* Loads the JSON file `path` (not null). Gives a new handle that remembers a
 * copy of `path` for ku_json_file_save, or null when the file is missing,
 * unreadable or not valid JSON, when its text is the JSON null, or when the
 * handle cannot be allocated. The top value may be of any type; an array
 * document is reached with a null key in the array functions below. If only
 * the path copy fails, the handle comes back without a path and can then
 * only be saved to a given path. Free with ku_json_destroy. */
KU_API ku_json_doc *ku_json_load_from_file(const char *path) KU_NOEXCEPT;

/* Parses the JSON text `text` into a new handle without a path. Gives null
 * for a null text, text that is not valid JSON, the JSON text null, or when
 * the handle cannot be allocated. Free with ku_json_destroy. */
KU_API ku_json_doc *ku_json_load_from_buf(const char *text) KU_NOEXCEPT;

/* Makes a new handle without a path on an empty object. Gives null when the
 * handle cannot be allocated. If json-c cannot make the empty object, the
 * handle still comes back, without a tree: the field functions then treat it
 * as having no document and ku_json_file_save gives -1. */
KU_API ku_json_doc *ku_json_create(void) KU_NOEXCEPT;

/* Writes the tree as compact JSON (json_object_to_file; slashes in strings
 * are escaped as "\/") to `path`, or to the document's own path when `path`
 * is null. A given path is used for this save only. The file's directory is
 * made first with ku_create_dir_for_file. Gives 0, or -1 when `doc` or its
 * tree is null, there is no path, or the write fails; the tree in memory is
 * unharmed. */
KU_API int ku_json_file_save(ku_json_doc *doc, const char *path) KU_NOEXCEPT;

/* Frees the path copy, the tree and the handle; ends every borrowed pointer
 * into the tree. Writes nothing to the file. Null is ignored. Always 0. */
KU_API int ku_json_destroy(ku_json_doc *doc) KU_NOEXCEPT;

/* Number of elements of the array under `key` in the top object, or of the
 * top value itself when `key` is null. Gives 0 when `key` is absent or JSON
 * null, when the value is no array, and for a document without a tree.
 * `doc` must not be null. */
KU_API int ku_json_array_get_num(ku_json_doc *doc, const char *key) KU_NOEXCEPT;

/* Element `index` of the array found as in ku_json_array_get_num: borrowed,
 * or null when the array is absent, empty or no array, or `index` (negative
 * included) names no element or a JSON null one. `doc` must not be null. */
KU_API struct json_object *ku_json_array_get_obj(ku_json_doc *doc, const char *key,
                                                 int index) KU_NOEXCEPT;

/* --- Field access: readers ------------------------------------------------
 * The ku_json_obj_* functions work on a raw object; the ku_json_* twins apply
 * them to a document's top value. A document-layer function given a null
 * `doc`, or a document without a tree, calls nothing and gives its guard
 * value (0, null or -1; see each). `key` must not be null in a reader. A
 * null `obj`, an `obj` that is no JSON object, an absent key and a JSON null
 * value all read as absent. */

/* The value as int (json-c's conversions, see json_file_get_int); 0 when
 * absent. */
KU_API int ku_json_obj_get_int(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API int ku_json_get_int(ku_json_doc *doc, const char *key) KU_NOEXCEPT;

/* The value as int64_t, with the same conversions; 0 when absent. */
KU_API int64_t ku_json_obj_get_int64(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API int64_t ku_json_get_int64(ku_json_doc *doc, const char *key) KU_NOEXCEPT;

/* The text of a string value, or the JSON text of any other value; null when
 * absent. Borrowed: it lives in the value and ends when the value is
 * replaced or removed, or (for a value that is no string) printed again. */
KU_API const char *ku_json_obj_get_string(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API const char *ku_json_get_string(ku_json_doc *doc, const char *key) KU_NOEXCEPT;

/* As the get_string pair, as a malloc copy the caller frees; null when
 * absent or when the copy fails. */
KU_API char *ku_json_obj_dup_string(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API char *ku_json_dup_string(ku_json_doc *doc, const char *key) KU_NOEXCEPT;

/* The value itself, of any type, borrowed; null when absent. The document
 * form does not test `doc`: it must not be null (a document without a tree
 * gives null). */
KU_API struct json_object *ku_json_obj_get_obj(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API struct json_object *ku_json_get_obj(ku_json_doc *doc, const char *key) KU_NOEXCEPT;

/* --- Field access: writers ------------------------------------------------
 * Each makes the new value, removes the old one under `key` (if any; borrowed
 * pointers into it end) and adds the new one behind all other keys. Gives 0,
 * or -1 with the object unchanged when `key` is null, the new value cannot be
 * made, or `obj` is null or no JSON object (so an array document refuses
 * them). Guard value of the document layer: -1. */

KU_API int ku_json_obj_set_int(struct json_object *obj, const char *key, int value) KU_NOEXCEPT;
KU_API int ku_json_set_int(ku_json_doc *doc, const char *key, int value) KU_NOEXCEPT;

KU_API int ku_json_obj_set_int64(struct json_object *obj, const char *key,
                                 int64_t value) KU_NOEXCEPT;
KU_API int ku_json_set_int64(ku_json_doc *doc, const char *key, int64_t value) KU_NOEXCEPT;

/* `value` is copied; a null `value` gives -1 and leaves the key as it was. */
KU_API int ku_json_obj_set_string(struct json_object *obj, const char *key,
                                  const char *value) KU_NOEXCEPT;
KU_API int ku_json_set_string(ku_json_doc *doc, const char *key, const char *value) KU_NOEXCEPT;

/* Stores the value parsed from the JSON text `text` (any value: object,
 * array, number, ...). A null text, text that does not parse and the JSON
 * text null give -1 and leave the old value. */
KU_API int ku_json_obj_set_obj(struct json_object *obj, const char *key, const char *text) KU_NOEXCEPT;
KU_API int ku_json_set_obj(ku_json_doc *doc, const char *key, const char *text) KU_NOEXCEPT;

/* --- Field access: printers ---------------------------------------------- */

/* Compact JSON of the whole value with slashes NOT escaped (json-c flag
 * JSON_C_TO_STRING_NOSLASHESCAPE alone), so it differs from the saved file
 * for any string holding a slash; a string value keeps its quotes. A malloc
 * copy; null when printing or the copy fails. A null `obj` prints "null".
 * Guard value of the document layer: null. */
KU_API char *ku_json_obj_string_dup(struct json_object *obj) KU_NOEXCEPT;
KU_API char *ku_json_string_dup(ku_json_doc *doc) KU_NOEXCEPT;

/* The same text, borrowed: it lies in the value's own print buffer and lasts
 * until the value is printed again or released. */
KU_API const char *ku_json_obj_string_ref(struct json_object *obj) KU_NOEXCEPT;
KU_API const char *ku_json_string_ref(ku_json_doc *doc) KU_NOEXCEPT;

/* json_object_get_string of `obj` as a malloc copy: a string gives its bare
 * text without quotes, any other value its JSON text spaced as
 * JSON_C_TO_STRING_SPACED prints it (e.g. "{ \"a\": 1 }"). Null for a null
 * `obj` or when the copy fails. */
KU_API char *ku_json_obj_dup_obj_string(struct json_object *obj) KU_NOEXCEPT;

/* --- Field access: keys -------------------------------------------------- */

/* Removes `key` and releases its value; borrowed pointers into it end.
 * Gives 1 when something was removed, 0 when `key` is null, absent or holds
 * JSON null (such a key stays). This is no 0/-1 status. Guard value: 0. */
KU_API int ku_json_obj_del_obj(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API int ku_json_del_obj(ku_json_doc *doc, const char *key) KU_NOEXCEPT;

/* 1 when `key` holds a value, 0 when `key` is null, absent or holds JSON
 * null. Guard value: 0. */
KU_API int ku_json_obj_key_exist(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API int ku_json_is_key_exist(ku_json_doc *doc, const char *key) KU_NOEXCEPT;

/* --- Raw arrays ---------------------------------------------------------- */

/* 1 when `obj` is a JSON array, else 0 (also for null). */
KU_API int ku_json_object_is_array(struct json_object *obj) KU_NOEXCEPT;

/* Number of elements. `obj` must be an array: it is not tested, and anything
 * else is undefined behaviour (check with ku_json_object_is_array). */
KU_API int ku_json_obj_array_get_length(struct json_object *obj) KU_NOEXCEPT;

/* Element `index`, borrowed; null when `index` (negative included) names no
 * element or a JSON null one. `obj` must be an array, as above. */
KU_API struct json_object *ku_json_obj_array_get_obj(struct json_object *obj,
                                                     int index) KU_NOEXCEPT;

/* --- Array setters ------------------------------------------------------- */

/* Sets `field` to `value` in element `index` of the array of objects under
 * `key` in the top object, in one of three ways:
 *  1. element `index` exists (ku_json_array_get_obj): its field is replaced
 *     as by ku_json_obj_set_int, moving behind the element's other fields;
 *     an element that is no object gives -1;
 *  2. else, if `key` holds an array: a new object { field: value } is
 *     appended at its end, whatever `index` said (no filler elements; an
 *     empty array or a JSON null element at `index` lands here too);
 *  3. else, if `key` is absent or JSON null: `key` gets a new array holding
 *     one such object.
 * Gives 0, or -1 with the document unchanged when `key` or `field` is null,
 * the top value is no object, `key` holds a value that is no array, or
 * memory runs out. `doc` must not be null (no guard on this pair). */
KU_API int ku_json_array_set_int(ku_json_doc *doc, const char *key, int index, const char *field,
                                 int value) KU_NOEXCEPT;

/* As ku_json_array_set_int with a string `value`, copied; a null `value`
 * gives -1. */
KU_API int ku_json_array_set_string(ku_json_doc *doc, const char *key, int index,
                                    const char *field, const char *value) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_JSON_H */
