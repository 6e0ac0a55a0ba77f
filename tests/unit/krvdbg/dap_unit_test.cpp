// krvdbg-dap's own parts without a VM: the framing of the client's byte
// stream (whole messages from any split, bad headers and bodies reported and
// passed over), the request table's answers to requests out of place or
// malformed, and the class a source file names.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "DapAdapter.h"
#include "DapChannel.h"
#include "SourceMap.h"
#include "ValueReader.h"

using namespace krvdbg;

namespace {

std::string frame(const std::string& body)
{
    return "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// Everything the channel makes of `bytes` fed in pieces cut at `cuts`:
// "seq N" for a message, "error: ..." for a drop.
std::vector<std::string> cutInto(const std::string& bytes, std::vector<size_t> cuts)
{
    DapChannel channel;
    std::vector<std::string> out;
    size_t at = 0;
    cuts.push_back(bytes.size());
    for (size_t cut : cuts) {
        channel.feed(bytes.substr(at, cut - at));
        at = cut;
        while (auto item = channel.next())
            out.push_back(item->ok ? "seq " + std::to_string(item->message.value("seq", -1)) : "error: " + item->error);
    }
    return out;
}

TEST(DapChannel, WholeMessagesFromEverySplit)
{
    const std::string two = frame(R"({"seq":1,"type":"request","command":"initialize"})") +
                            frame(R"({"seq":2,"type":"request","command":"threads","arguments":{"x":"é"}})");
    const std::vector<std::string> expected{"seq 1", "seq 2"};
    for (size_t cut = 0; cut <= two.size(); ++cut)
        ASSERT_EQ(cutInto(two, {cut}), expected) << "cut at " << cut;
    std::vector<size_t> everyByte;
    for (size_t i = 1; i < two.size(); ++i)
        everyByte.push_back(i);
    EXPECT_EQ(cutInto(two, everyByte), expected);
}

TEST(DapChannel, BadHeadersAndBodiesAreReportedAndTheStreamGoesOn)
{
    const std::string good = frame(R"({"seq":9})");
    // Each row's bytes are followed by a good message; the first item they
    // give holds `first`, and the good message follows unless the bad bytes
    // swallow it (a too-long body up to its length, an endless header).
    const struct {
        const char* name;
        std::string bytes;
        std::string first;
        bool swallows = false;
    } cases[] = {
        {"other headers and any case", "content-length: 9\r\nContent-Type: application/json\r\n\r\n{\"seq\":9}",
         "seq 9"},
        {"LF-only line ends", "Content-Length: 9\n\n{\"seq\":9}", "seq 9"},
        {"no Content-Length", "Content-Type: x\r\n\r\n", "without Content-Length"},
        {"not a number", "Content-Length: nine\r\n\r\n", "not a number"},
        {"negative", "Content-Length: -4\r\n\r\n", "not a number"},
        {"a line without a colon", "Hello\r\n\r\n", "without a colon"},
        {"body not JSON", frame("{seq:1}"), "not JSON"},
        {"body an array", frame("[1,2]"), "not an object"},
        {"too long to keep", "Content-Length: 999999999\r\n\r\n" + std::string(100, 'x'), "too long", true},
        {"endless header", std::string(9000, 'a'), "8 KiB of header", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto got = cutInto(c.bytes + good, {});
        ASSERT_EQ(got.size(), c.swallows ? 1u : 2u);
        EXPECT_NE(got.front().find(c.first), std::string::npos) << got.front();
        EXPECT_TRUE(c.swallows || got.back() == "seq 9") << got.back();
    }
}

// The adapter answers with what a person can act on; no VM is started.
TEST(DapAdapter, RequestsOutOfPlaceOrMalformedGetErrorResponses)
{
    std::vector<json> sent;
    DapAdapter adapter([&](const json& m) { sent.push_back(m); });
    int seq = 0;
    // Sends one request; returns the message of its response ("ok" on
    // success, "(no response)" while it waits).
    auto ask = [&](const std::string& command, json arguments = json::object()) {
        sent.clear();
        json request = {{"seq", ++seq}, {"type", "request"}, {"command", command}};
        if (!arguments.is_null())
            request["arguments"] = arguments;
        adapter.handle(request);
        for (const auto& m : sent)
            if (m.value("type", "") == "response" && m.value("request_seq", -1) == seq) {
                EXPECT_EQ(m.value("command", ""), command);
                return m.value("success", false) ? std::string("ok") : m.value("message", std::string("(none)"));
            }
        return std::string("(no response)");
    };
    const std::string missing = "/nonexistent/krvdbg-dap-" + std::to_string(::getpid());
    const struct {
        std::string command;
        json arguments;
        std::string part; // of the response's message, "ok" for success
    } steps[] = {
        {"threads", json::object(), "before initialize"},
        {"initialize", {{"adapterID", "krv"}}, "ok"},
        {"initialize", json::object(), "cannot be done"},
        {"stackTrace", {{"threadId", 1}}, "needs a stopped program"},
        {"continue", {{"threadId", 1}}, "needs a stopped program"},
        {"next", {{"threadId", 1}}, "needs a stopped program"},
        {"evaluate", {{"expression", "a"}}, "needs a stopped program"},
        {"variables", {{"variablesReference", 1}}, "needs a stopped program"},
        {"frobnicate", json::object(), "frobnicate"},
        {"pause", {{"threadId", 1}}, "needs a running program"},
        {"setBreakpoints", {{"breakpoints", json::array()}}, "needs source.path"},
        {"setBreakpoints", {{"source", {{"path", missing + ".java"}}}, {"breakpoints", {{{"line", 3}}}}}, "ok"},
        {"setFunctionBreakpoints", json::object(), "needs \"breakpoints\""},
        {"setFunctionBreakpoints", {{"breakpoints", {{{"line", 3}}}}}, "needs a \"name\""},
        {"setFunctionBreakpoints", {{"breakpoints", {{{"name", "a.B.c"}, {"condition", 1}}}}}, "must be a string"},
        {"setFunctionBreakpoints", {{"breakpoints", {{{"name", "add"}}}}}, "ok"},
        {"setExceptionBreakpoints", {{"filters", {"all"}}}, "unknown exception filter \"all\""},
        {"setExceptionBreakpoints", {{"filters", {"leavingThrowingClass"}}}, "ok"},
        {"threads", nullptr, "ok"},
        {"threads", "not an object", "must be an object"},
        {"launch", {{"mainClass", "1bad"}}, "is not a class name"},
        {"launch", {{"mainClass", "demo.Shop"}, {"args", 5}}, "array of strings"},
        {"launch", {{"mainClass", "demo.Shop"}, {"cwd", missing}}, "does not exist"},
        {"attach", {{"port", 0}}, "needs \"port\""},
        {"attach", {{"port", "5005"}}, "needs \"port\""},
        // A launch waits for configurationDone; a second one meanwhile is refused.
        {"launch", {{"mainClass", "a.B"}}, "(no response)"},
        {"launch", {{"mainClass", "a.B"}}, "second time"},
        {"disconnect", json::object(), "ok"},
    };
    for (const auto& s : steps) {
        const std::string got = ask(s.command, s.arguments);
        if (s.part == "ok")
            EXPECT_EQ(got, "ok") << s.command << " " << s.arguments.dump();
        else
            EXPECT_NE(got.find(s.part), std::string::npos) << s.command << " " << s.arguments.dump() << ": " << got;
    }
    EXPECT_TRUE(adapter.finished());

    // Not requests at all: answered, never a crash.
    sent.clear();
    adapter.handle({{"seq", 50}, {"type", "request"}});
    adapter.handle({{"type", "response"}, {"request_seq", 1}});
    adapter.badInput("bad message header: x");
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].value("success", true), false);
    EXPECT_NE(sent[1].value("message", "").find("bad message header"), std::string::npos);
}

TEST(DapSourceMap, ThePackageLineNamesTheClass)
{
    const std::pair<const char*, const char*> cases[] = {
        {"package demo;\nclass A {}", "demo"},
        {"// comment\n/* package no; */\npackage  a.b.c ;", "a.b.c"},
        {"/** doc */ @Deprecated package a.b; ", "a.b"},
        {"@SuppressWarnings(\"x\") package a;", "a"},
        {"import java.util.List;\nclass A {}", ""},
        {"class A { String s = \"package x;\"; }", ""},
        {"package a.b", ""}, // no semicolon: not a package line
        {"", ""},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(SourceMap::packageOf(text), expected) << text;

    namespace fs = std::filesystem;
    const fs::path root = fs::temp_directory_path() / ("dap-src-" + std::to_string(::getpid()));
    fs::create_directories(root / "p");
    std::ofstream(root / "p" / "Main.java") << "package p;\npublic class Main {}\n";
    SourceMap map;
    map.setFolders({root.string()}, {});
    EXPECT_EQ(map.classOfFile((root / "p" / "Main.java").string()).value_or("?"), "p/Main");
    EXPECT_EQ(map.fileOfClass("p/Main$Inner$1"), (root / "p" / "Main.java").string());
    EXPECT_EQ(map.fileOfClass("q/Other"), "");
    EXPECT_EQ(SourceMap::fileNameOf("p/Main$Inner"), "Main.java");
    EXPECT_FALSE(map.classOfFile((root / "p" / "None.java").string()));
    fs::remove_all(root);
}

TEST(DapValues, TypesAndCharsAsJavaWritesThem)
{
    const std::pair<const char*, const char*> types[] = {
        {"I", "int"},
        {"[[J", "long[][]"},
        {"Lpkg/Outer$Inner;", "pkg.Outer$Inner"},
        {"[Ljava/lang/String;", "java.lang.String[]"},
    };
    for (const auto& [sig, name] : types)
        EXPECT_EQ(ValueReader::typeName(sig), name);
    const std::pair<uint32_t, const char*> chars[] = {
        {'A', "'A'"},          {'\n', "'\\n'"},      {'\'', "'\\''"},
        {0, "'\\u0000'"},      {0xE9, "'\xC3\xA9'"}, {0x20AC, "'\xE2\x82\xAC'"},
        {0xD800, "'\\ud800'"}, {0x7F, "'\\u007f'"},
    };
    for (const auto& [code, text] : chars)
        EXPECT_EQ(ValueReader::charText(code), text) << code;
    EXPECT_EQ(ValueReader::quoted("a\"b\\\n"), "\"a\\\"b\\\\\\n\"");
}

} // namespace
