#include "ku/plugin.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <cstdio>
#include <string>

#include "support/capture.h"
#include "support/temp_dir.h"

// Each row: what goes to stdout ("open <file> succeed" once <file> is found
// readable) and stderr, the ops of a loaded plug-in, and that nothing stays
// loaded after ku_plugin_destroy. In a message @ stands for the address of
// the plug-in's ku_module_name (held here too, so it stays) or dlerror().
TEST(Plugin, LoadGivesTheOpsOrOneMessageAndUnloadsAtTheEnd)
{
    ku_test::TempDir dir;
    dir.write("kutest_text.so", "just some text, no ELF header\n");
    const std::string long_name(1100, 'n'), cut = (dir.path() + "/p_" + long_name).substr(0, 1023);
    const char *const plugins = KU_TEST_PLUGIN_DIR, *const temp = dir.path().c_str();
    const std::string invalid = "ku_plugin_create invalid args, path=";
    const auto mismatch = [](const std::string &got, const std::string &name) {
        return "ERROR ku_load_module: module_name \"" + got + "\" (@) does not match \"" + name +
               "\"\n";
    };
    const std::string no_ops = "ERROR: ku_load_module module_ops not found\n";
    const struct {
        const char *dir, *prefix, *name;
        std::string file, message;
        const char *ops = nullptr;
    } rows[] = {
        {nullptr, "p_", "x", "", invalid + "(null) prefix=p_ name=x\n"},
        {"/d", nullptr, "x", "", invalid + "/d prefix=(null) name=x\n"},
        {"/d", "p_", nullptr, "", invalid + "/d prefix=p_ name=(null)\n"},
        {"/d", "p_", "", "", invalid + "/d prefix=p_ name=\n"},
        {"", "kutest_", "gone", "", "access /kutest_gone.so failed\n"},  // in the root
        {temp, "p_", long_name.c_str(), "", "access " + cut + " failed\n"},
        {plugins, "", "kutest_wrong", "kutest_wrong", mismatch("other", "kutest_wrong")},
        {plugins, "kutest", "_good", "kutest_good", mismatch("good", "_good")},
        {plugins, "kutest_", "noname", "kutest_noname", mismatch("null", "noname")},
        {plugins, "kutest_", "nullname", "kutest_nullname", mismatch("null", "nullname")},
        {plugins, "kutest_", "nullops", "kutest_nullops", no_ops},
        {plugins, "kutest_", "noops", "kutest_noops", no_ops},
        {temp, "kutest_", "text", "kutest_text", "ERROR: ku_load_module dlopen failed\n@\n"},
        {plugins, "kutest_", "good", "kutest_good", "", "good ops"},  // last: reuses a freed block
    };
    for (const auto &row : rows) {
        const std::string file = row.file.empty() ? "" : row.dir + ("/" + row.file + ".so");
        void *held = file.empty() ? nullptr : dlopen(file.c_str(), RTLD_LAZY);
        char address[32];
        std::snprintf(address, sizeof address, "%p", held ? dlsym(held, "ku_module_name") : held);
        std::string message = row.message;
        if (message.find('@') != std::string::npos)
            message.replace(message.find('@'), 1, held != nullptr ? address : dlerror());
        ku_test::CaptureStdout out;
        ku_test::CaptureStderr err;
        ku_plugin *plugin = ku_plugin_create(row.dir, row.prefix, row.name);
        EXPECT_EQ(err.finish(), message);
        EXPECT_EQ(out.finish(), file.empty() ? "" : "open " + file + " succeed\n");
        EXPECT_EQ(plugin != nullptr, row.ops != nullptr) << file;
        if (plugin != nullptr) {
            EXPECT_EQ(std::make_pair(plugin->reserved, plugin->handle), std::make_pair(0u, held));
            EXPECT_STREQ(static_cast<const char *>(plugin->ops), row.ops);
        }
        ku_plugin_destroy(plugin);
        if (held != nullptr)
            dlclose(held);
        EXPECT_EQ(file.empty() ? nullptr : dlopen(file.c_str(), RTLD_LAZY | RTLD_NOLOAD), nullptr);
    }
}
