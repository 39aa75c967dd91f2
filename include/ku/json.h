/* JSON documents and field access over json-c.
 *
 * A ku_json_doc is an opaque handle on a json-c tree plus the path of the file
 * it came from (or none). The ku_json_obj_* functions work on a raw
 * json_object; each ku_json_* twin applies the same operation to a document's
 * root. Pointers to json_object and "borrowed" strings point into the tree:
 * never free them; they die with the value they point to (a replace, a
 * delete, ku_json_destroy). "Copies" come from strdup and are released with
 * free. Nothing here writes a log line except ku_create_dir_for_file.
 *
 * Readers treat a key whose value is JSON null exactly like an absent key, so
 * a stored 0 (or null) can't be told from a missing one.
 *
 * Writers always delete the old entry before adding the new one: json-c keeps
 * keys in insertion order, so a replaced key moves behind every other key in
 * printed and saved text, even when its value did not change.
 *
 * Checks beyond the bare json-c calls, so that a wrong caller gets a failure
 * result instead of undefined behaviour: every writer refuses (-1) an obj that
 * is null or not a JSON object; the array readers treat a value that is not an
 * array like an absent one (0 or null); the array setters refuse (-1) a null
 * doc, root, key or field, a root that is not an object, a value under key
 * that is neither absent nor an array, and an element that is not an object.
 *
 * Threads: no locks. A document, and any json_object tree, belongs to one
 * thread at a time: even the printers change it, since json-c writes into the
 * value's print buffer. Different documents may be used on different threads
 * at once. ku_create_dir_for_file keeps its state on the caller's stack and
 * blocks the caller until the shell has finished. */
#ifndef KU_JSON_H
#define KU_JSON_H

#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

/* json-c's tree node; include <json-c/json.h> to work on it directly. */
struct json_object;

/* Document handle: an owned copy of a file path (or none) and one reference
 * on a json-c tree. Made by the loaders or ku_json_create, ended by
 * ku_json_destroy. */
typedef struct ku_json_doc ku_json_doc;

/* ---- Documents ----------------------------------------------------------- */

/* Makes the directory part of the file path `path` by running
 * "mkdir -p <dir>" through system() after a trace line "create dir <dir>".
 * Does nothing for a path without a slash, a file in "/" ("/name"), a
 * directory that already exists, a null path, or a path of 255 bytes or more
 * (it could not be copied whole). The directory text is not quoted: blanks
 * or shell characters in it reach the shell as they are, and a directory text
 * of more than 245 bytes is cut there. The shell's status is not read. */
KU_API void ku_create_dir_for_file(const char *path) KU_NOEXCEPT;

/* Reads the integer under `key` at the top of the JSON file `path`, with
 * json-c's conversions. 0 on every failure (missing or unparsable file, key
 * null or absent, top value not an object). */
KU_API int json_file_get_int(const char *path, const char *key) KU_NOEXCEPT;
/* The same for JSON text; a null text gives 0. */
KU_API int json_buf_get_int(const char *text, const char *key) KU_NOEXCEPT;

/* Loads a JSON file. Null when the file is missing, unreadable or not JSON
 * (the text "null" counts as not JSON), or the handle can't be allocated.
 * The top value may be of any type. If only the copy of `path` fails, the
 * handle comes back without a path and can only be saved to a given path. */
KU_API ku_json_doc *ku_json_load_from_file(const char *path) KU_NOEXCEPT;
/* Parses JSON text into a document without a path. Null for a null text, a
 * text that isn't JSON (or is "null"), or a failed allocation. */
KU_API ku_json_doc *ku_json_load_from_buf(const char *text) KU_NOEXCEPT;
/* A new document without a path, holding an empty object. Null when the
 * handle can't be allocated; if only the empty object can't be made, the
 * handle comes back with no tree (every ku_json_* call then sees no
 * document). */
KU_API ku_json_doc *ku_json_create(void) KU_NOEXCEPT;
/* Writes the tree as compact JSON (json_object_to_file: slashes escaped as
 * "\/") to `path`, or to the document's own path when `path` is null; a given
 * path is used for this save only. Makes the file's directory first with
 * ku_create_dir_for_file. 0 on success; -1 for a null doc, no tree, no
 * target path, or a failed write (the tree in memory is unharmed). */
KU_API int ku_json_file_save(ku_json_doc *doc, const char *path) KU_NOEXCEPT;
/* Frees the path copy, drops the tree and frees the handle; writes nothing.
 * Ends every borrowed pointer into the tree. Null is accepted. Always 0. */
KU_API int ku_json_destroy(ku_json_doc *doc) KU_NOEXCEPT;

/* Number of elements of the array under `key` in the root, or of the root
 * itself when `key` is null. 0 when the key is absent, the value is no array,
 * or there is no tree (a null doc included). */
KU_API int ku_json_array_get_num(ku_json_doc *doc, const char *key) KU_NOEXCEPT;
/* Element `index` of that array, borrowed. Null when the array is absent,
 * empty or no array, when `index` names no element (negative too), and for a
 * JSON null element. */
KU_API struct json_object *ku_json_array_get_obj(ku_json_doc *doc, const char *key, int index) KU_NOEXCEPT;

/* ---- Readers by key ----------------------------------------------------- */
/* A null or non-object obj, a null or absent key and a JSON null value all
 * give the same answer: 0 or null. A null doc or a doc without a tree gives
 * it too. */

/* The value as int through json_object_get_int: a double is cut, a boolean
 * gives 0 or 1, a numeric string is parsed, anything else gives 0. */
KU_API int ku_json_obj_get_int(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API int ku_json_get_int(ku_json_doc *doc, const char *key) KU_NOEXCEPT;
/* The same as int64_t through json_object_get_int64. */
KU_API int64_t ku_json_obj_get_int64(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API int64_t ku_json_get_int64(ku_json_doc *doc, const char *key) KU_NOEXCEPT;
/* The value as text, borrowed from json-c: a string's bare text, any other
 * value its JSON text. Lasts until the value is replaced or removed; the
 * caller neither changes nor frees it. */
KU_API char *ku_json_obj_get_string(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API char *ku_json_get_string(ku_json_doc *doc, const char *key) KU_NOEXCEPT;
/* The same text as a copy for free(); null also when strdup fails. */
KU_API char *ku_json_obj_dup_string(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API char *ku_json_dup_string(ku_json_doc *doc, const char *key) KU_NOEXCEPT;
/* The value itself, borrowed, whatever its type (go on with ku_json_obj_*).
 * ku_json_get_obj doesn't test doc: it must not be null. */
KU_API struct json_object *ku_json_obj_get_obj(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API struct json_object *ku_json_get_obj(ku_json_doc *doc, const char *key) KU_NOEXCEPT;

/* ---- Writers: 0, or -1 with the object unchanged ------------------------ */
/* The old value (if any) is deleted and released first, ending borrowed
 * pointers into it, then the new one is added, so the key moves to the end.
 * -1 for a null key, a null or non-object obj, a null doc or tree, or a value
 * json-c can't make. Should json-c fail to store the new entry (out of
 * memory) the call gives -1 and the key is then absent. */
KU_API int ku_json_obj_set_int(struct json_object *obj, const char *key, int value) KU_NOEXCEPT;
KU_API int ku_json_set_int(ku_json_doc *doc, const char *key, int value) KU_NOEXCEPT;
KU_API int ku_json_obj_set_int64(struct json_object *obj, const char *key, int64_t value) KU_NOEXCEPT;
KU_API int ku_json_set_int64(ku_json_doc *doc, const char *key, int64_t value) KU_NOEXCEPT;
/* `value` is copied; a null value gives -1 and leaves the key alone. */
KU_API int ku_json_obj_set_string(struct json_object *obj, const char *key, const char *value) KU_NOEXCEPT;
KU_API int ku_json_set_string(ku_json_doc *doc, const char *key, const char *value) KU_NOEXCEPT;
/* Stores the value parsed from the JSON text `text` (any JSON value). A null
 * text, text that doesn't parse, and the text "null" give -1. */
KU_API int ku_json_obj_set_obj(struct json_object *obj, const char *key, const char *text) KU_NOEXCEPT;
KU_API int ku_json_set_obj(ku_json_doc *doc, const char *key, const char *text) KU_NOEXCEPT;

/* ---- Printers of a whole value ------------------------------------------ */

/* Compact JSON with slashes left bare (JSON_C_TO_STRING_NOSLASHESCAPE only),
 * as a copy for free(). A string value prints with its quotes. A null obj
 * prints as "null"; a null doc or one without a tree gives null. Unlike
 * ku_json_file_save, "/" is not escaped here. */
KU_API char *ku_json_obj_string_dup(struct json_object *obj) KU_NOEXCEPT;
KU_API char *ku_json_string_dup(ku_json_doc *doc) KU_NOEXCEPT;
/* The same text without a copy: it lives in the object's own print buffer and
 * lasts until the object is printed again or released; the caller neither
 * changes nor frees it. */
KU_API char *ku_json_obj_string_ref(struct json_object *obj) KU_NOEXCEPT;
KU_API char *ku_json_string_ref(ku_json_doc *doc) KU_NOEXCEPT;
/* json_object_get_string as a copy for free(): a string's bare text without
 * quotes, any other value its JSON text in the spaced layout
 * (JSON_C_TO_STRING_SPACED). Null for a null obj. */
KU_API char *ku_json_obj_dup_obj_string(struct json_object *obj) KU_NOEXCEPT;

/* ---- Keys ----------------------------------------------------------------- */

/* Removes and releases the value under key. 1 when removed; 0 when key is
 * null, absent or holds JSON null (such a key stays in the object), or the
 * doc is null or has no tree. This is no 0/-1 status. */
KU_API int ku_json_obj_del_obj(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API int ku_json_del_obj(ku_json_doc *doc, const char *key) KU_NOEXCEPT;
/* 1 when key holds a value other than JSON null; 0 otherwise (null key too). */
KU_API int ku_json_obj_key_exist(struct json_object *obj, const char *key) KU_NOEXCEPT;
KU_API int ku_json_is_key_exist(ku_json_doc *doc, const char *key) KU_NOEXCEPT;

/* ---- Raw arrays --------------------------------------------------------- */

/* 1 when obj is a JSON array, else 0 (null obj too). */
KU_API int ku_json_object_is_array(struct json_object *obj) KU_NOEXCEPT;
/* Number of elements; 0 for a null obj or one that is no array. */
KU_API int ku_json_obj_array_get_length(struct json_object *obj) KU_NOEXCEPT;
/* Element `index`, borrowed; null when obj is no array or index names no
 * element (negative too). A JSON null element also gives null. */
KU_API struct json_object *ku_json_obj_array_get_obj(struct json_object *obj, int index) KU_NOEXCEPT;

/* ---- Array setters ------------------------------------------------------ */
/* Set `field` of one object in the array under `key` in the root, in one of
 * three ways:
 *   1. element `index` exists: its field is replaced like ku_json_obj_set_*
 *      (the field moves to the element's end; other fields stay);
 *   2. otherwise, if key holds an array: a new object {field: value} is
 *      appended at its end, whatever `index` says (no filler elements; a JSON
 *      null element counts as missing);
 *   3. otherwise key holds nothing: a new array with that one object is
 *      added under key.
 * 0, or -1 with the document unchanged (see the checks at the top; a null
 * string value gives -1 too). */
KU_API int ku_json_array_set_int(ku_json_doc *doc, const char *key, int index, const char *field,
                                 int value) KU_NOEXCEPT;
KU_API int ku_json_array_set_string(ku_json_doc *doc, const char *key, int index, const char *field,
                                    const char *value) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_JSON_H */
