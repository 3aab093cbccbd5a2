#include "peximage/platform/foundation/Network.h"

#include "tests/support/HttpServer.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <libdeflate.h>

#include <atomic>
#include <future>
#include <memory>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <stop_token>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using pex::NetworkLimits;
using pex::NetworkOptions;
using pex::NetworkReply;
using pex::readAddress;
using pex::ReasonCode;
using pex::URL;

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

std::future<NetworkReply> inBackground(const URL& url, const NetworkOptions& options = {}) {
    const auto arrived = std::make_shared<std::promise<NetworkReply>>();
    pex::readAddressInBackground(url, options,
                                 [arrived](NetworkReply reply) { arrived->set_value(std::move(reply)); });
    return arrived->get_future();
}

void redirect(const HttpServer::Exchange& exchange, const std::string& to) {
    exchange.answer("302 Found", "", "Location: " + to + "\r\n");
}

/// What a server does by the path that is asked for.
void serve(const HttpServer::Exchange& exchange) {
    const std::string path = exchange.target.substr(0, exchange.target.find("?key"));
    if (path == "/plain?q=1") return exchange.answer("200 OK", "plain");
    if (path == "/empty") return exchange.answer("200 OK", "");
    if (path == "/packed")
        return exchange.answer("200 OK", gzipped("unpacked"), "Content-Encoding: gzip\r\n");
    if (path == "/bomb")
        return exchange.answer("200 OK", gzipped(std::string(10'000'000, 'x')), "Content-Encoding: gzip\r\n");
    if (path == "/missing") return exchange.answer("404 Not Found", "a picture, they say");
    if (path == "/unchanged") return exchange.answer("304 Not Modified", "");
    if (path == "/moved") return redirect(exchange, "/plain?q=1");
    if (path == "/loop") return redirect(exchange, "/loop");
    if (path == "/to-file") return redirect(exchange, "file:///etc/hostname");
    if (path == "/to-ftp") return redirect(exchange, "ftp://127.0.0.1/a");
    if (path == "/short")
        return void(exchange.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this"));
    if (path == "/long") // more than was announced
        return void(exchange.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nfour and more"));
    if (path == "/garbage") return void(exchange.send("what is HTTP?\r\n\r\n"));
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
        EXPECT_FALSE(reply.reason) << path;
    }
}

struct Refusal {
    const char* path;
    ReasonCode code;
    const char* words = nullptr; // null: whatever the transfer library says
};

const std::vector<Refusal> refusals{{"/missing", ReasonCode::networkFailed, "the server answered 404"},
                                    {"/unchanged", ReasonCode::networkFailed, "the server answered 304"},
                                    {"/bomb", ReasonCode::overLimit, "larger than 1000000 bytes"},
                                    {"/endless", ReasonCode::overLimit, "larger than 1000000 bytes"},
                                    {"/loop", ReasonCode::networkFailed},
                                    {"/to-file", ReasonCode::networkFailed},
                                    {"/to-ftp", ReasonCode::networkFailed},
                                    {"/short", ReasonCode::networkFailed},
                                    {"/garbage", ReasonCode::networkFailed},
                                    {"/reset", ReasonCode::networkFailed},
                                    {"/hang", ReasonCode::timedOut},
                                    {"/stall", ReasonCode::timedOut}};

TEST(NetworkTest, TellsWhyAnAddressCannotBeRead) {
    const Limits limits({.connectSeconds = 5, .stallSeconds = 1, .maxBytes = 1'000'000});
    const HttpServer server(serve);
    const std::string host = "http://me:secret@" + server.address("").substr(std::string("http://").size());
    std::vector<std::future<NetworkReply>> begun;
    for (const Refusal& c : refusals)
        begun.push_back(inBackground(*URL::parse(host + c.path + "?key=secret")));
    const auto check = [](const NetworkReply& reply, const Refusal& c) {
        EXPECT_FALSE(reply.data) << c.path;
        EXPECT_EQ(reply.reason.code, c.code) << c.path << ": " << reply.reason.message;
        EXPECT_NE(reply.reason.message, "") << c.path;
        EXPECT_EQ(reply.reason.message.find("secret"), std::string::npos) << reply.reason.message;
        EXPECT_EQ(reply.reason.message, c.words != nullptr ? c.words : reply.reason.message);
    };
    for (std::size_t i = 0; i < refusals.size(); ++i)
        check(begun[i].get(), refusals[i]);
    for (const Refusal& c : refusals) {
        const double patience = c.code == ReasonCode::timedOut ? 0.2 : 30;
        check(readAddress(*URL::parse(host + c.path + "?key=secret"), {.timeOutSeconds = patience}), c);
        EXPECT_EQ(pex::lastReason().code, c.code) << c.path;
    }
}

TEST(NetworkTest, ServersThatDoNotAnswerHoldNobodyUp) {
    constexpr int silent = 40; // more than are asked of one server at the same time
    const HttpServer server(serve), other(serve);
    std::stop_source stop;
    std::vector<std::future<NetworkReply>> hanging;
    for (int i = 0; i < silent; ++i)
        hanging.push_back(inBackground(server.url("/hang"), {.stop = stop.get_token()}));
    EXPECT_EQ(textOf(inBackground(other.url("/plain?q=1")).get()), "plain");
    const auto late = inBackground(server.url("/hang"), {.timeOutSeconds = 0.2}).get();
    EXPECT_EQ(late.reason.code, ReasonCode::timedOut) << "also of what waits for its turn";
    std::jthread stopsReading([&] { stop.request_stop(); });
    EXPECT_EQ(readAddress(server.url("/hang"), {.stop = stop.get_token()}).reason.code,
              ReasonCode::cancelled);
    for (auto& one : hanging)
        EXPECT_EQ(one.get().reason.code, ReasonCode::cancelled);
    EXPECT_EQ(textOf(inBackground(server.url("/plain?q=1")).get()), "plain");
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

TEST(NetworkTest, ReadsFilesAndNoOtherKindOfAddress) {
    const TempFolder folder;
    writeFile(folder.path() / "a b.txt", "local");
    EXPECT_EQ(textOf(readAddress(folder.url("a b.txt"))), "local");
    EXPECT_FALSE(readAddress(folder.url("none")).data);
    EXPECT_FALSE(readAddress(pex::URL::fromPath("/dev/zero")).data);
    for (const char* address : {"ftp://127.0.0.1/a", "gopher://127.0.0.1/a", "http://",
                                "http://127.0.0.1:99999/", "https://127.0.0.1:1/a", "x:y"}) {
        const NetworkReply reply = readAddress(*URL::parse(address));
        EXPECT_FALSE(reply.data) << address;
        EXPECT_TRUE(reply.reason) << address;
    }
}

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using Context = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;

/// For 127.0.0.1, signed by itself.
Certificate makeCertificate(EVP_PKEY* key) {
    Certificate certificate(X509_new(), X509_free);
    X509* const x509 = certificate.get();
    X509_set_version(x509, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(x509), 1);
    X509_gmtime_adj(X509_getm_notBefore(x509), -3600);
    X509_gmtime_adj(X509_getm_notAfter(x509), 3600);
    X509_NAME* const name = X509_get_subject_name(x509);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("127.0.0.1"),
                               -1, -1, 0);
    X509_set_issuer_name(x509, name);
    X509_EXTENSION* const address =
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, "IP:127.0.0.1");
    X509_add_ext(x509, address, -1);
    X509_EXTENSION_free(address);
    X509_set_pubkey(x509, key);
    X509_sign(x509, key, EVP_sha256());
    return certificate;
}

/// A secure web server on the loopback interface, for one connection, whose certificate nobody vouches for.
class SelfSignedServer {
  public:
    ~SelfSignedServer() {
        listener_.stop();
        thread_.join();
    }

    std::string address() const { return "https://127.0.0.1:" + std::to_string(listener_.port()) + "/"; }
    /// Whether a client went on after it had seen the certificate.
    bool wasTrusted() const { return trusted_; }

  private:
    void serve() {
        const int socket = listener_.accept();
        if (socket < 0) return;
        const Key key(EVP_EC_gen("P-256"), EVP_PKEY_free);
        const Certificate certificate = makeCertificate(key.get());
        const Context context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
        SSL_CTX_use_certificate(context.get(), certificate.get());
        SSL_CTX_use_PrivateKey(context.get(), key.get());
        SSL* const connection = SSL_new(context.get());
        SSL_set_fd(connection, socket);
        trusted_ = SSL_accept(connection) == 1;
        SSL_free(connection);
        ::close(socket);
    }

    LoopbackListener listener_;
    std::atomic<bool> trusted_{false};
    std::thread thread_{[this] { serve(); }}; // last: it uses all of the above
};

TEST(NetworkTest, OnlyCertificatesThatAreKnownCount) {
    const SelfSignedServer server;
    const NetworkReply reply = readAddress(*URL::parse(server.address()));
    EXPECT_FALSE(reply.data);
    EXPECT_NE(reply.reason.message.find("certificate"), std::string::npos) << reply.reason.message;
    EXPECT_FALSE(server.wasTrusted());
}

} // namespace
