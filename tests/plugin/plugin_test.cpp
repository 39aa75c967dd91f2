#include "ku/plugin.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <dlfcn.h>
#include <string>

#include "plugin/test_plugin_ops.h"
#include "support/alloc_control.h"
#include "support/capture.h"
#include "support/temp_dir.h"

namespace {

const std::string kDir = KU_TEST_PLUGIN_DIR;

std::string plugin_file(const std::string &stem)
{
    return kDir + "/" + stem + ".so";
}

// One ku_plugin_create call with both standard streams captured.
struct Attempt {
    Attempt(const char *path, const char *prefix, const char *name)
    {
        ku_test::CaptureStdout out;
        ku_test::CaptureStderr err;
        plugin = ku_plugin_create(path, prefix, name);
        stderr_text = err.finish();
        stdout_text = out.finish();
    }
    ~Attempt() { ku_plugin_destroy(plugin); }
    Attempt(const Attempt &) = delete;
    Attempt &operator=(const Attempt &) = delete;

    ku_plugin *plugin = nullptr;
    std::string stdout_text;
    std::string stderr_text;
};

// Whether the shared object is mapped in this process right now.
bool loaded(const std::string &file)
{
    void *handle = dlopen(file.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr) {
        return false;
    }
    dlclose(handle);
    return true;
}

std::string pointer_text(const void *pointer)
{
    char text[64];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

std::string opened_line(const std::string &file)
{
    return "open " + file + " succeed\n";
}

// Holds the plug-in open from the test's side, so that the loader gets the
// same mapping and its messages show addresses the test can predict.
struct HeldPlugin {
    explicit HeldPlugin(const std::string &file) : handle(dlopen(file.c_str(), RTLD_LAZY)) {}
    ~HeldPlugin()
    {
        if (handle != nullptr) {
            dlclose(handle);
        }
    }
    HeldPlugin(const HeldPlugin &) = delete;
    HeldPlugin &operator=(const HeldPlugin &) = delete;
    void *symbol(const char *name) const { return dlsym(handle, name); }

    void *handle;
};

// ---------------------------------------------------------------------------
// Loading

TEST(PluginLoad, GoodPluginGivesItsOpsAndStaysLoadedUntilDestroyed)
{
    const std::string file = plugin_file("kutest_good");
    ASSERT_FALSE(loaded(file));
    ku_test::CaptureStdout out;
    ku_test::CaptureStderr err;
    ku_plugin *plugin = ku_plugin_create(kDir.c_str(), "kutest_", "good");
    EXPECT_EQ(err.finish(), "");
    EXPECT_EQ(out.finish(), opened_line(file));
    ASSERT_NE(plugin, nullptr);

    EXPECT_EQ(plugin->reserved, 0u);
    EXPECT_NE(plugin->handle, nullptr);
    const auto *ops = static_cast<const test_plugin_ops *>(plugin->ops);
    ASSERT_NE(ops, nullptr);
    EXPECT_EQ(ops->add(2, 3), 5);
    EXPECT_STREQ(ops->tag, "good ops");
    {
        HeldPlugin held(file);
        const auto table = reinterpret_cast<const void *(*)(void)>(held.symbol("test_plugin_table"));
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(plugin->ops, table());
    }
    EXPECT_TRUE(loaded(file));

    ku_plugin_destroy(plugin);
    EXPECT_FALSE(loaded(file));
}

TEST(PluginLoad, EmptyPrefixLeavesNameAndEnding)
{
    Attempt attempt(kDir.c_str(), "", "bare");
    ASSERT_NE(attempt.plugin, nullptr);
    EXPECT_EQ(attempt.stdout_text, opened_line(plugin_file("bare")));
    EXPECT_EQ(attempt.stderr_text, "");
    EXPECT_STREQ(static_cast<const test_plugin_ops *>(attempt.plugin->ops)->tag, "bare ops");
}

TEST(PluginLoad, NothingComesBetweenPrefixAndName)
{
    // "kutest" + "_good" is the good plug-in's file, asked for as "_good".
    Attempt attempt(kDir.c_str(), "kutest", "_good");
    EXPECT_EQ(attempt.plugin, nullptr);
    EXPECT_EQ(attempt.stdout_text, opened_line(plugin_file("kutest_good")));
}

TEST(PluginLoad, TwoLoadsOfOnePluginAreIndependent)
{
    const std::string file = plugin_file("kutest_good");
    Attempt first(kDir.c_str(), "kutest_", "good");
    ku_plugin *second = nullptr;
    {
        ku_test::CaptureStdout quiet;
        second = ku_plugin_create(kDir.c_str(), "kutest_", "good");
    }
    ASSERT_NE(first.plugin, nullptr);
    ASSERT_NE(second, nullptr);
    ku_plugin_destroy(second);
    EXPECT_TRUE(loaded(file));
    EXPECT_EQ(static_cast<const test_plugin_ops *>(first.plugin->ops)->add(20, 22), 42);
}

TEST(PluginLoad, DestroyOfNullDoesNothing)
{
    ku_test::CaptureStdout out;
    ku_test::CaptureStderr err;
    ku_plugin_destroy(nullptr);
    EXPECT_EQ(err.finish(), "");
    EXPECT_EQ(out.finish(), "");
}

// ---------------------------------------------------------------------------
// Refusals before anything is opened

// Refused before anything is opened: nothing on stdout, one line on stderr.
TEST(PluginRefusal, BadArgumentsOrMissingFileAreNamed)
{
    ku_test::TempDir dir;
    const std::string name(1100, 'n');
    const std::string cut = (dir.path() + "/p_" + name + ".so").substr(0, 1023);
    struct Case {
        const char *path, *prefix, *name;
        std::string message;
    };
    const Case cases[] = {
        {nullptr, "p_", "x", "ku_plugin_create invalid args, path=(null) prefix=p_ name=x\n"},
        {"/d", nullptr, "x", "ku_plugin_create invalid args, path=/d prefix=(null) name=x\n"},
        {"/d", "p_", nullptr, "ku_plugin_create invalid args, path=/d prefix=p_ name=(null)\n"},
        {"/d", "p_", "", "ku_plugin_create invalid args, path=/d prefix=p_ name=\n"},
        {kDir.c_str(), "kutest_", "missing", "access " + plugin_file("kutest_missing") + " failed\n"},
        {"", "kutest_", "no_such_plugin_here", "access /kutest_no_such_plugin_here.so failed\n"},  // the root
        {dir.path().c_str(), "p_", name.c_str(), "access " + cut + " failed\n"},                 // cut at 1023
    };
    for (const Case &c : cases) {
        Attempt attempt(c.path, c.prefix, c.name);
        EXPECT_EQ(attempt.plugin, nullptr);
        EXPECT_EQ(attempt.stderr_text, c.message);
        EXPECT_EQ(attempt.stdout_text, "");
    }
}

// ---------------------------------------------------------------------------
// Failures after the file was found readable: each closes what it opened

TEST(PluginFailure, ReadableFileThatIsNoSharedObject)
{
    ku_test::TempDir dir;
    const std::string file = dir.write("kutest_text.so", "just some text, no ELF header\n");
    Attempt attempt(dir.path().c_str(), "kutest_", "text");
    EXPECT_EQ(attempt.plugin, nullptr);
    EXPECT_EQ(attempt.stdout_text, opened_line(file));

    // The second line is dlerror()'s own text for this file.
    ASSERT_EQ(dlopen(file.c_str(), RTLD_LAZY), nullptr);
    const std::string reason = dlerror();
    EXPECT_NE(reason.find(file), std::string::npos);
    EXPECT_EQ(attempt.stderr_text, "ERROR: ku_load_module dlopen failed\n" + reason + "\n");
}

TEST(PluginFailure, WrongNameNamesBothAndUnloads)
{
    const std::string file = plugin_file("kutest_wrong");
    std::string expected;
    {
        HeldPlugin held(file);
        ASSERT_NE(held.handle, nullptr);
        expected = "ERROR ku_load_module: module_name \"other\" (" +
                   pointer_text(held.symbol("ku_module_name")) + ") does not match \"wrong\"\n";
        Attempt attempt(kDir.c_str(), "kutest_", "wrong");
        EXPECT_EQ(attempt.plugin, nullptr);
        EXPECT_EQ(attempt.stdout_text, opened_line(file));
        EXPECT_EQ(attempt.stderr_text, expected);
    }
    EXPECT_FALSE(loaded(file));
}

TEST(PluginFailure, MissingNameSymbolIsShownAsNull)
{
    const std::string file = plugin_file("kutest_noname");
    Attempt attempt(kDir.c_str(), "kutest_", "noname");
    EXPECT_EQ(attempt.plugin, nullptr);
    EXPECT_EQ(attempt.stdout_text, opened_line(file));
    EXPECT_EQ(attempt.stderr_text, "ERROR ku_load_module: module_name \"null\" (" + pointer_text(nullptr) +
                                       ") does not match \"noname\"\n");
    EXPECT_FALSE(loaded(file));
}

TEST(PluginFailure, NameFunctionGivingNullIsShownAsNull)
{
    const std::string file = plugin_file("kutest_nullname");
    HeldPlugin held(file);
    ASSERT_NE(held.handle, nullptr);
    Attempt attempt(kDir.c_str(), "kutest_", "nullname");
    EXPECT_EQ(attempt.plugin, nullptr);
    EXPECT_EQ(attempt.stderr_text, "ERROR ku_load_module: module_name \"null\" (" +
                                       pointer_text(held.symbol("ku_module_name")) +
                                       ") does not match \"nullname\"\n");
}

TEST(PluginFailure, MissingOrNullOpsIsRefused)
{
    for (const char *name : {"nullops", "noops"}) {
        const std::string file = plugin_file(std::string("kutest_") + name);
        Attempt attempt(kDir.c_str(), "kutest_", name);
        EXPECT_EQ(attempt.plugin, nullptr);
        EXPECT_EQ(attempt.stdout_text, opened_line(file));
        EXPECT_EQ(attempt.stderr_text, "ERROR: ku_load_module module_ops not found\n");
        EXPECT_FALSE(loaded(file));
    }
}

TEST(PluginFailure, RecordAllocationFailureComesAfterTheOpenLine)
{
    KU_REQUIRE_ALLOC_CONTROL();
    const std::string file = plugin_file("kutest_good");
    ku_test::CaptureStdout out;
    ku_test::CaptureStderr err;
    ku_plugin *plugin = nullptr;
    {
        ku_test::AllocControl alloc;
        alloc.fail(ku_test::kAnyAlloc);
        plugin = ku_plugin_create(kDir.c_str(), "kutest_", "good");
    }
    EXPECT_EQ(plugin, nullptr);
    EXPECT_EQ(err.finish(), "ku_plugin_create malloc failed\n");
    EXPECT_EQ(out.finish(), opened_line(file));
    EXPECT_FALSE(loaded(file));
}

}  // namespace
