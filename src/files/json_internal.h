// The document handle shared by the JSON document and field-access sources.
#pragma once

#include <json-c/json.h>

#include "ku/json.h"

struct ku_json_doc {
    char *path;         // own copy for free(), or null: the document has no file
    json_object *root;  // one reference owned by the handle, or null
};

namespace ku_json_internal {

// The root of a document, or null for a null handle or a handle without a tree.
inline json_object *root_of(const ku_json_doc *doc) noexcept
{
    return doc != nullptr ? doc->root : nullptr;
}

// Owns one json-c reference until it is released or handed on.
struct TreeRef {
    json_object *tree;
    explicit TreeRef(json_object *owned) noexcept : tree(owned) {}
    ~TreeRef() { json_object_put(tree); }
    TreeRef(const TreeRef &) = delete;
    TreeRef &operator=(const TreeRef &) = delete;
    json_object *release() noexcept
    {
        json_object *kept = tree;
        tree = nullptr;
        return kept;
    }
};

}  // namespace ku_json_internal
