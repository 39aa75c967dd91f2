// ku plugin: loads a plug-in the way an application would, through
// ku_plugin_create, reports what the loader found, and unloads it again:
// a quick check that a plug-in file is named, built and exported right.
#include <ku/plugin.h>

#include <cstdio>
#include <string>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku plugin DIR PREFIX NAME\n"
    "\n"
    "Loads the plug-in DIR/PREFIXNAME.so, checks that its ku_module_name() gives\n"
    "NAME and that its ku_module_ops() gives a table, prints where the table\n"
    "lies, and unloads the plug-in. PREFIX may be empty (''). The loader's own\n"
    "lines come first: \"open FILE succeed\" on stdout once the file is readable,\n"
    "and its error lines on stderr.\n";

}  // namespace

int run_plugin(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("plugin", argc, argv, {});
    if (!args)
        return kExitUsage;
    if (args->positional.size() != 3)
        return usage_error("plugin", "expected DIR, PREFIX and NAME");
    const std::string &dir = args->positional[0], &prefix = args->positional[1], &name = args->positional[2];
    if (name.empty())
        return usage_error("plugin", "NAME must not be empty");

    const std::string file = dir + "/" + prefix + name + ".so";
    ku_plugin *plugin = ku_plugin_create(dir.c_str(), prefix.c_str(), name.c_str());
    std::fflush(stdout);
    if (plugin == nullptr)
        return fail("plugin", "cannot load plug-in '" + name + "' from " + file);
    std::printf("plug-in '%s' loaded from %s, operations at %p\n", name.c_str(), file.c_str(), plugin->ops);
    ku_plugin_destroy(plugin);
    return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
}

}  // namespace ku_tool
