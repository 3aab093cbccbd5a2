#include "peximage/platform/foundation/Network.h"

#include "tests/support/HttpServer.h"
#include "tests/support/SelfSignedServer.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <libdeflate.h>

#include <fstream>
#include <vector>

namespace {

using pex::NetworkLimits;
using pex::NetworkReply;
using pex::readAddress;

/// Limits for one test.
class Limits {
  public:
    explicit Limits(NetworkLimits limits) { NetworkLimits::setCurrent(limits); }
    ~Limits() { NetworkLimits::setCurrent({}); }
};

std::string textOf(const NetworkReply& reply) { return reply.data ? std::string(reply.data->text()) : "-"; }

std::string gzipped(const std::string& text) {
    libdeflate_compressor* compressor = libdeflate_alloc_compressor(6);
    std::vector<char> bytes(libdeflate_gzip_compress_bound(compressor, text.size()));
    const std::size_t size =
        libdeflate_gzip_compress(compressor, text.data(), text.size(), bytes.data(), bytes.size());
    libdeflate_free_compressor(compressor);
    return {bytes.data(), size};
}

void redirect(const HttpServer::Exchange& exchange, const std::string& to) {
    exchange.answer("302 Found", "", "Location: " + to + "\r\n");
}

/// What a server does by the path that is asked for.
void serve(const HttpServer::Exchange& exchange) {
    const std::string& path = exchange.target;
    if (path == "/plain?q=1") return exchange.answer("200 OK", "plain");
    if (path == "/empty") return exchange.answer("200 OK", "");
    if (path == "/packed")
        return exchange.answer("200 OK", gzipped("unpacked"), "Content-Encoding: gzip\r\n");
    if (path == "/bomb")
        return exchange.answer("200 OK", gzipped(std::string(10'000'000, 'x')), "Content-Encoding: gzip\r\n");
    if (path == "/missing") return exchange.answer("404 Not Found", "a picture, they say");
    if (path == "/broken") return exchange.answer("500 Oops", "");
    if (path == "/unchanged") return exchange.answer("304 Not Modified", "");
    if (path == "/moved") return redirect(exchange, "/plain?q=1");
    if (path == "/loop") return redirect(exchange, "/loop");
    if (path == "/to-file") return redirect(exchange, "file:///etc/hostname");
    if (path == "/to-ftp") return redirect(exchange, "ftp://127.0.0.1/a");
    if (path == "/short") {
        exchange.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this");
        return;
    }
    if (path == "/long") { // more than was announced
        exchange.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nfour and more");
        return;
    }
    if (path == "/garbage") {
        exchange.send("what is HTTP?\r\n\r\n");
        return;
    }
    if (path == "/reset") return exchange.reset();
    if (path == "/hang") return exchange.waitUntilClientGoes();
    if (path == "/stall") {
        exchange.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nsome");
        return exchange.waitUntilClientGoes();
    }
    if (path == "/endless") {
        exchange.send("HTTP/1.1 200 OK\r\n\r\n");
        while (exchange.send(std::string(100'000, 'x'))) {
        }
    }
}

TEST(NetworkTest, ReadsWhatServersSend) {
    const HttpServer server(serve);
    const std::vector<std::pair<std::string, std::string>> cases{
        {"/plain?q=1", "plain"}, {"/empty", ""},    {"/packed", "unpacked"},
        {"/moved", "plain"},     {"/long", "four"},
    };
    for (const auto& [path, content] : cases) {
        const NetworkReply reply = readAddress(server.url(path));
        EXPECT_EQ(textOf(reply), content) << path;
        EXPECT_EQ(reply.problem, "") << path;
    }
}

TEST(NetworkTest, TellsWhyAnAddressCannotBeRead) {
    const Limits limits({.connectSeconds = 5, .stallSeconds = 1, .maxBytes = 1'000'000});
    const HttpServer server(serve);
    const std::vector<std::pair<std::string, std::string>> cases{
        {"/missing", "the server answered 404"},   {"/broken", "the server answered 500"},
        {"/unchanged", "the server answered 304"}, {"/bomb", "larger than 1000000 bytes"},
        {"/endless", "larger than 1000000 bytes"},
    };
    for (const auto& [path, problem] : cases) {
        const NetworkReply reply = readAddress(server.url(path));
        EXPECT_FALSE(reply.data) << path;
        EXPECT_EQ(reply.problem, problem) << path;
    }
    for (const char* path :
         {"/loop", "/to-file", "/to-ftp", "/short", "/garbage", "/reset", "/hang", "/stall"}) {
        const NetworkReply reply = readAddress(server.url(path));
        EXPECT_FALSE(reply.data) << path;
        EXPECT_NE(reply.problem, "") << path;
    }
}

TEST(NetworkTest, FollowsTenRedirectsAndNoMore) {
    const HttpServer server([](const HttpServer::Exchange& exchange) {
        const int left = std::stoi(exchange.target.substr(1));
        if (left == 0) return exchange.answer("200 OK", "there");
        redirect(exchange, '/' + std::to_string(left - 1));
    });
    EXPECT_EQ(textOf(readAddress(server.url("/10"))), "there");
    EXPECT_EQ(textOf(readAddress(server.url("/11"))), "-");
}

TEST(NetworkTest, GivesUpWhenTheTimeIsOver) {
    const HttpServer server(serve); // its other limits would wait for half a minute
    EXPECT_FALSE(readAddress(server.url("/hang"), 0.2).data);
    EXPECT_FALSE(readAddress(server.url("/stall"), 0.2).data);
}

TEST(NetworkTest, ReadsFilesAndNoOtherKindOfAddress) {
    const TempFolder folder;
    std::ofstream(folder.path() / "a b.txt") << "local";
    EXPECT_EQ(textOf(readAddress(folder.url("a b.txt"))), "local");
    EXPECT_FALSE(readAddress(folder.url("none")).data);
    EXPECT_FALSE(readAddress(pex::URL::fromPath("/dev/zero")).data);
    for (const char* address : {"ftp://127.0.0.1/a", "gopher://127.0.0.1/a", "http://",
                                "http://127.0.0.1:99999/", "https://127.0.0.1:1/a", "x:y"}) {
        const NetworkReply reply = readAddress(*pex::URL::parse(address));
        EXPECT_FALSE(reply.data) << address;
        EXPECT_NE(reply.problem, "") << address;
    }
}

TEST(NetworkTest, OnlyCertificatesThatAreKnownCount) {
    const SelfSignedServer server;
    const NetworkReply reply = readAddress(*pex::URL::parse(server.address()));
    EXPECT_FALSE(reply.data);
    EXPECT_NE(reply.problem.find("certificate"), std::string::npos) << reply.problem;
    EXPECT_FALSE(server.wasTrusted());
}

} // namespace
