// Plug-in loader: dlopen a file named from directory, prefix and name, and
// accept it only if its ku_module_name agrees with the name asked for.
// Messages go straight to stdout/stderr with fprintf, never through the log.
#include "ku/plugin.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <unistd.h>

namespace {

// Callers read the record directly: three words, in this order.
static_assert(offsetof(ku_plugin, reserved) == 0);
static_assert(offsetof(ku_plugin, handle) == sizeof(void *));
static_assert(offsetof(ku_plugin, ops) == 2 * sizeof(void *));
static_assert(sizeof(ku_plugin) == 3 * sizeof(void *));

constexpr const char *kCreate = "ku_plugin_create";
constexpr const char *kLoad = "ku_load_module";
constexpr const char *kNameSymbol = "ku_module_name";
constexpr const char *kOpsSymbol = "ku_module_ops";

constexpr const char kFileFormat[] = "%s/%s%s.so";
constexpr const char kInvalidArgs[] = "%s invalid args, path=%s prefix=%s name=%s\n";
constexpr const char kAccessFailed[] = "access %s failed\n";
constexpr const char kOpenSucceed[] = "open %s succeed\n";
constexpr const char kMallocFailed[] = "%s malloc failed\n";
constexpr const char kDlopenFailed[] = "ERROR: %s dlopen failed\n";
constexpr const char kDlerrorLine[] = "%s\n";
constexpr const char kNameMismatch[] = "ERROR %s: module_name \"%s\" (%p) does not match \"%s\"\n";
constexpr const char kOpsNotFound[] = "ERROR: %s module_ops not found\n";

// Longest file name kept, terminator included; longer names are cut.
constexpr size_t kFileNameSize = 1024;

const char *shown(const char *text) noexcept
{
    return text != nullptr ? text : "(null)";
}

// Owns the half-built record until it is handed out: every failure path
// closes the object (when opened) and frees the record.
struct PendingPlugin {
    ku_plugin *record = nullptr;
    void *handle = nullptr;

    ~PendingPlugin()
    {
        if (handle != nullptr) {
            dlclose(handle);
        }
        std::free(record);
    }

    ku_plugin *release() noexcept
    {
        ku_plugin *done = record;
        record = nullptr;
        handle = nullptr;
        return done;
    }
};

template <typename Function>
Function find_function(void *handle, const char *symbol) noexcept
{
    return reinterpret_cast<Function>(dlsym(handle, symbol));
}

}  // namespace

extern "C" {

KU_API ku_plugin *ku_plugin_create(const char *path, const char *prefix, const char *name) noexcept
{
    if (path == nullptr || prefix == nullptr || name == nullptr || name[0] == '\0') {
        std::fprintf(stderr, kInvalidArgs, kCreate, shown(path), shown(prefix), shown(name));
        return nullptr;
    }

    char file[kFileNameSize] = {};
    std::snprintf(file, sizeof file, kFileFormat, path, prefix, name);

    if (access(file, R_OK) != 0) {
        std::fprintf(stderr, kAccessFailed, file);
        return nullptr;
    }
    // Only says the file is readable: nothing has been opened yet.
    std::fprintf(stdout, kOpenSucceed, file);
    std::fflush(stdout);

    PendingPlugin pending;
    pending.record = static_cast<ku_plugin *>(std::malloc(sizeof(ku_plugin)));
    if (pending.record == nullptr) {
        std::fprintf(stderr, kMallocFailed, kCreate);
        return nullptr;
    }
    pending.record->reserved = 0;
    pending.record->handle = nullptr;
    pending.record->ops = nullptr;

    pending.handle = dlopen(file, RTLD_LAZY);
    if (pending.handle == nullptr) {
        const char *reason = dlerror();
        std::fprintf(stderr, kDlopenFailed, kLoad);
        std::fprintf(stderr, kDlerrorLine, reason != nullptr ? reason : "");
        return nullptr;
    }

    const auto module_name = find_function<ku_module_name_fn>(pending.handle, kNameSymbol);
    if (module_name == nullptr || module_name() == nullptr || std::strcmp(module_name(), name) != 0) {
        const char *reported = module_name != nullptr ? module_name() : nullptr;
        std::fprintf(stderr, kNameMismatch, kLoad, reported != nullptr ? reported : "null",
                     reinterpret_cast<void *>(module_name), name);
        return nullptr;
    }

    const auto module_ops = find_function<ku_module_ops_fn>(pending.handle, kOpsSymbol);
    if (module_ops == nullptr || module_ops() == nullptr) {
        std::fprintf(stderr, kOpsNotFound, kLoad);
        return nullptr;
    }

    pending.record->handle = pending.handle;
    pending.record->ops = module_ops();
    return pending.release();
}

KU_API void ku_plugin_destroy(ku_plugin *plugin) noexcept
{
    if (plugin == nullptr) {
        return;
    }
    if (plugin->handle != nullptr) {
        dlclose(plugin->handle);
        plugin->handle = nullptr;
        plugin->ops = nullptr;
    }
    std::free(plugin);
}

}  // extern "C"
