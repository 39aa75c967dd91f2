// ku json on files in a private directory: dotted paths into objects and
// arrays, values taken as JSON or as text, files made and rewritten, and
// the refusals of absent keys, unreadable files and wrong arguments.
#include <gtest/gtest.h>

#include <string>

#include "ku_tool.h"

namespace {

using ku_test::expect_one_line_error;
using ku_test::ku;
using ku_test::read_file;
using KuJson = ku_test::KuTool;

#ifdef KU_TOOL_HAVE_JSON

const std::string kConfig =
    R"({"name": "box", "port": 8080, "debug": false, "url": "http://a/b",
        "server": {"host": "10.0.0.2", "limits": {"clients": 4}},
        "hosts": [{"addr": "10.0.0.3"}, {"addr": "10.0.0.4"}]})";

TEST_F(KuJson, PrintGivesCompactJson)
{
    const auto file = dir.write("c.json", R"({ "a" : 1,  "b": [true, null], "u": "x/y" })");
    const auto result = ku({"json", "print", file});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "{\"a\":1,\"b\":[true,null],\"u\":\"x/y\"}\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(ku({"json", "print", file, "b"}).out, "[true,null]\n");
    EXPECT_EQ(ku({"json", "print", "--pretty", file}).out,
              "{\n  \"a\": 1,\n  \"b\": [\n    true,\n    null\n  ],\n  \"u\": \"x/y\"\n}\n");
    const auto file2 = dir.write("d.json", R"({"e": {}, "f": [], "g": "q\",{[:"})");
    EXPECT_EQ(ku({"json", "print", "-p", file2}).out, "{\n  \"e\": {},\n  \"f\": [],\n  \"g\": \"q\\\",{[:\"\n}\n");
}

TEST_F(KuJson, GetGivesStringsBareAndOtherValuesAsJson)
{
    const auto file = dir.write("c.json", kConfig);
    EXPECT_EQ(ku({"json", "get", file, "name"}).out, "box\n");
    EXPECT_EQ(ku({"json", "get", file, "port"}).out, "8080\n");
    EXPECT_EQ(ku({"json", "get", file, "debug"}).out, "false\n");
    EXPECT_EQ(ku({"json", "get", file, "url"}).out, "http://a/b\n");
    EXPECT_EQ(ku({"json", "get", file, "server.limits"}).out, "{\"clients\":4}\n");
}

TEST_F(KuJson, DottedPathsReachIntoObjectsAndArrays)
{
    const auto file = dir.write("c.json", kConfig);
    EXPECT_EQ(ku({"json", "get", file, "server.host"}).out, "10.0.0.2\n");
    EXPECT_EQ(ku({"json", "get", file, "server.limits.clients"}).out, "4\n");
    EXPECT_EQ(ku({"json", "get", file, "hosts.1.addr"}).out, "10.0.0.4\n");
    const auto list = dir.write("list.json", R"([10, {"k": "v"}])");
    EXPECT_EQ(ku({"json", "get", list, "0"}).out, "10\n");
    EXPECT_EQ(ku({"json", "get", list, "1.k"}).out, "v\n");
}

TEST_F(KuJson, AbsentKeysFailWithOneLine)
{
    const auto file = dir.write("c.json", R"({"a": {"b": 1}, "n": null, "l": [1]})");
    for (const char *key : {"x", "a.c", "a.b.c", "n", "l.1", "l.x", "l.-1"}) {
        SCOPED_TRACE(key);
        expect_one_line_error(ku({"json", "get", file, key}), 1, "json");
    }
    expect_one_line_error(ku({"json", "print", file, "zz"}), 1, "json");
}

TEST_F(KuJson, SetStoresJsonValuesAndTextAndSaves)
{
    const auto file = dir.write("c.json", R"({"a": 1, "b": 2})");
    ASSERT_EQ(ku({"json", "set", file, "n", "42"}).status, 0);
    ASSERT_EQ(ku({"json", "set", file, "f", "-1.5"}).status, 0);
    ASSERT_EQ(ku({"json", "set", file, "t", "true"}).status, 0);
    ASSERT_EQ(ku({"json", "set", file, "o", R"({"x": [1, 2]})"}).status, 0);
    ASSERT_EQ(ku({"json", "set", file, "s", "hello world"}).status, 0);
    ASSERT_EQ(ku({"json", "set", file, "q", R"("quoted")"}).status, 0);
    ASSERT_EQ(ku({"json", "set", "--string", file, "z", "42"}).status, 0);
    // A replaced key moves behind the others.
    ASSERT_EQ(ku({"json", "set", file, "a", "7"}).status, 0);
    EXPECT_EQ(ku({"json", "print", file}).out,
              R"({"b":2,"n":42,"f":-1.5,"t":true,"o":{"x":[1,2]},"s":"hello world","q":"quoted","z":"42","a":7})"
              "\n");
}

TEST_F(KuJson, SetMakesMissingObjectsAndFiles)
{
    const std::string file = dir.file("sub/new.json");
    const auto result = ku({"json", "set", file, "net.wifi.ssid", "home"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(ku({"json", "print", file}).out, "{\"net\":{\"wifi\":{\"ssid\":\"home\"}}}\n");
    ASSERT_EQ(ku({"json", "set", file, "hosts", "[{\"addr\": \"a\"}]"}).status, 0);
    ASSERT_EQ(ku({"json", "set", file, "hosts.0.addr", "b"}).status, 0);
    EXPECT_EQ(ku({"json", "get", file, "hosts.0.addr"}).out, "b\n");
}

// The tool makes missing directories itself: the library would hand the
// directory to the shell unquoted. The saved file reads as printed, "/" bare.
TEST_F(KuJson, SaveMakesOnlyTheNamedDirectories)
{
    ku_test::ProcessOptions options;
    options.cwd = dir.path();
    for (const std::string path : {"x/a b/f.json", "x/$(touch pwned)/f.json"}) {
        SCOPED_TRACE(path);
        const auto result = ku({"json", "set", path, "url", "http://a/b"}, options);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(read_file(dir.file(path)), R"({"url":"http://a/b"})");
    }
    EXPECT_EQ(ku_test::run_process({"sh", "-c", "cd '" + dir.path() + "' && find . | sort"}).out,
              ".\n./x\n./x/$(touch pwned)\n./x/$(touch pwned)/f.json\n./x/a b\n./x/a b/f.json\n");
}

TEST_F(KuJson, SetRefusesWhatJsonCannotHold)
{
    const auto file = dir.write("c.json", R"({"l": [1, 2], "n": 5})");
    expect_one_line_error(ku({"json", "set", file, "k", "null"}), 1, "json");
    expect_one_line_error(ku({"json", "set", file, "k", "{broken"}), 1, "json");
    expect_one_line_error(ku({"json", "set", file, "l.0", "3"}), 1, "json");
    expect_one_line_error(ku({"json", "set", file, "n.x", "3"}), 1, "json");
    EXPECT_EQ(ku({"json", "print", file}).out, "{\"l\":[1,2],\"n\":5}\n");
}

TEST_F(KuJson, DelRemovesAKeyAndSaves)
{
    const auto file = dir.write("c.json", kConfig);
    ASSERT_EQ(ku({"json", "del", file, "server.limits"}).status, 0);
    ASSERT_EQ(ku({"json", "del", file, "hosts"}).status, 0);
    EXPECT_EQ(ku({"json", "print", file, "server"}).out, "{\"host\":\"10.0.0.2\"}\n");
    expect_one_line_error(ku({"json", "del", file, "hosts"}), 1, "json");
    expect_one_line_error(ku({"json", "del", file, "server.nothing"}), 1, "json");
}

TEST_F(KuJson, MissingAndBrokenFilesFail)
{
    const auto absent = ku({"json", "print", dir.file("absent.json")});
    expect_one_line_error(absent, 1, "json");
    EXPECT_NE(absent.err.find("absent.json: No such file or directory"), std::string::npos) << absent.err;
    expect_one_line_error(ku({"json", "del", dir.file("absent.json"), "a"}), 1, "json");
    const auto broken = dir.write("broken.json", "{\"a\": ");
    expect_one_line_error(ku({"json", "get", broken, "a"}), 1, "json");
    expect_one_line_error(ku({"json", "set", broken, "a", "1"}), 1, "json");
    EXPECT_EQ(read_file(broken), "{\"a\": ");
}

TEST_F(KuJson, RefusesWrongArguments)
{
    const auto file = dir.write("c.json", "{}");
    expect_one_line_error(ku({"json"}), 2, "json");
    expect_one_line_error(ku({"json", "show", file}), 2, "json");
    expect_one_line_error(ku({"json", "get", file}), 2, "json");
    expect_one_line_error(ku({"json", "set", file, "a"}), 2, "json");
    expect_one_line_error(ku({"json", "get", file, "a..b"}), 2, "json");
    expect_one_line_error(ku({"json", "get", "--string", file, "a"}), 2, "json");
}

#endif  // KU_TOOL_HAVE_JSON

}  // namespace
