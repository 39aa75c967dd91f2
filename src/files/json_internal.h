// The document handle's layout, shared by the document and field-access
// sources; callers only ever see a pointer.
#pragma once

#include <json-c/json.h>

#include "ku/json.h"

struct ku_json_doc {
    char *path;         // own copy, released with free(); null: no file
    json_object *root;  // one reference owned, released with json_object_put()
};

namespace ku_json_internal {

// The top value of a document, or null for a null handle or a handle
// without a tree: the one guard of every document-layer function.
inline json_object *root_of(const ku_json_doc *doc) noexcept
{
    return doc != nullptr ? doc->root : nullptr;
}

}  // namespace ku_json_internal
