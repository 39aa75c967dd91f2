/* Plug-in loader: opens "<path>/<prefix><name>.so", checks that the shared
 * object calls itself <name>, and hands out its table of operations.
 *
 * A plug-in exports two functions without arguments (see the typedefs below):
 * ku_module_name, giving its name, and ku_module_ops, giving a non-null
 * pointer to whatever table it and its caller agreed on. Both may be called
 * more than once and must give the same result each time.
 *
 * The loader writes straight to the standard streams, not through the log:
 * "open <file> succeed" on standard output once the file is found readable,
 * and one message per failure on standard error (see ku_plugin_create).
 *
 * Threads: no shared state of the loader's own and no locks, so loads may run
 * on several threads at once; dlerror() and the standard streams are used as
 * they are. A ku_plugin belongs to its caller: destroy it only when no thread
 * uses its operations any more. */
#ifndef KU_PLUGIN_H
#define KU_PLUGIN_H

#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

/* A loaded plug-in. Callers read ops directly; the layout is fixed. */
typedef struct ku_plugin {
    uint32_t reserved; /* 0 from creation on; the library never uses it */
    void *handle;      /* dlopen() handle of the shared object */
    void *ops;         /* what the plug-in's ku_module_ops() gave */
} ku_plugin;

/* The two functions a plug-in exports under these names. */
typedef const char *(*ku_module_name_fn)(void);
typedef void *(*ku_module_ops_fn)(void);

/* Loads "<path>/<prefix><name>.so" (cut at 1023 bytes without notice) with
 * RTLD_LAZY. Returns the record, or null after one message on standard error:
 *   "ku_plugin_create invalid args, path=%s prefix=%s name=%s" (a null string,
 *     shown as "(null)", or an empty name; empty path or prefix is accepted),
 *   "access <file> failed" (missing or unreadable),
 *   "ku_plugin_create malloc failed",
 *   "ERROR: ku_load_module dlopen failed" and then dlerror()'s text on a line
 *     of its own,
 *   "ERROR ku_load_module: module_name \"<got>\" (<address>) does not match
 *     \"<name>\"" (<got> is "null" when the symbol is missing or gives null),
 *   "ERROR: ku_load_module module_ops not found" (missing or gives null).
 * "open <file> succeed" goes to standard output before the object is opened,
 * so it also precedes the last three failures. A failure leaves nothing
 * loaded. The strings stay the caller's. Release with ku_plugin_destroy. */
KU_API ku_plugin *ku_plugin_create(const char *path, const char *prefix,
                                   const char *name) KU_NOEXCEPT;

/* Unloads the plug-in and frees the record; anything reached through ops is
 * gone afterwards. No plug-in function is called. Null is ignored. */
KU_API void ku_plugin_destroy(ku_plugin *plugin) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_PLUGIN_H */
