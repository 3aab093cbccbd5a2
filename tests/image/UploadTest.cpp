#include "peximage/image/PexImage.h"
#include "peximage/platform/foundation/Network.h"
#include "peximage/platform/varda/PexNet.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using pex::PexImage;
using pex::PexNet;
using pex::ReasonCode;

/// The one part of a multipart body.
struct Form {
    std::string head, content;
};

Form formOf(const HttpServer::Exchange& exchange) {
    const std::string& body = exchange.body;
    const std::string boundary = body.substr(0, body.find("\r\n"));
    const std::size_t headEnd = body.find("\r\n\r\n");
    const std::size_t contentEnd = body.rfind("\r\n" + boundary + "--");
    if (headEnd == std::string::npos || contentEnd == std::string::npos) return {};
    return {body.substr(boundary.size() + 2, headEnd - boundary.size()),
            body.substr(headEnd + 4, contentEnd - headEnd - 4)};
}

bool upload(const std::shared_ptr<PexImage>& image, std::optional<pex::URL> to, std::string name) {
    return image->uploadAsJpeg({.to = std::move(to), .withName = std::move(name), .quality = 0.8}).get();
}

TEST(UploadTest, PostsTheFileAsAForm) {
    std::vector<HttpServer::Exchange> seen;
    const HttpServer server([&](const HttpServer::Exchange& exchange) {
        seen.push_back(exchange);
        exchange.answer("201 Created", "thanks");
    });
    const auto image = PexImage::make(photoLike(900, 700));
    ASSERT_TRUE(upload(image, server.url("/in?album=1"), "photo \"1\""));
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].method, "POST");
    EXPECT_EQ(seen[0].target, "/in?album=1");
    const Form form = formOf(seen[0]);
    EXPECT_NE(form.head.find("name=\"file\"; filename=\"photo %221%22.jpg\"\r\n"), std::string::npos)
        << form.head;
    EXPECT_NE(form.head.find("Content-Type: application/octet-stream\r\n"), std::string::npos) << form.head;
    EXPECT_EQ(form.content, image->jpegData(0.8)->text());
}

TEST(UploadTest, GoesToTheApplicationsServerWithoutAnAddress) {
    std::string target;
    const HttpServer server([&](const HttpServer::Exchange& exchange) {
        target = exchange.target;
        exchange.answer("200 OK", "");
    });
    const auto image = PexImage::make(photoLike(20, 20));
    EXPECT_FALSE(upload(image, {}, "photo")); // none is named
    EXPECT_FALSE(PexNet::setServer(pex::URL::parse("http://server.example")));
    EXPECT_TRUE(PexNet::setServer(pex::URL::parse("https://server.example")));
    ASSERT_TRUE(PexNet::setServer(server.url("/app/")));
    EXPECT_TRUE(upload(image, {}, "photo"));
    EXPECT_EQ(target, "/app/quarn/filePost.php");
    PexNet::setServer({});
}

TEST(UploadTest, OnlyAnAnswerOfSuccessCounts) {
    pex::NetworkLimits::setCurrent({.wholeSeconds = 1});
    const HttpServer server([](const HttpServer::Exchange& exchange) {
        if (exchange.target == "/moved") return exchange.answer("302 Found", "", "Location: /fine\r\n");
        if (exchange.target == "/error") return exchange.answer("500 Oops", "");
        if (exchange.target == "/reset") return exchange.reset();
        if (exchange.target == "/hang") return exchange.waitUntilClientGoes();
        exchange.answer("200 OK", "");
    });
    const auto image = PexImage::make(photoLike(20, 20));
    for (const auto& [path, code] : {std::pair("/moved", ReasonCode::networkFailed),
                                     {"/error", ReasonCode::networkFailed},
                                     {"/reset", ReasonCode::networkFailed},
                                     {"/hang", ReasonCode::timedOut}}) {
        EXPECT_FALSE(upload(image, server.url(path), "a")) << path;
        EXPECT_EQ(pex::lastReason().code, code) << path;
    }
    EXPECT_TRUE(upload(image, server.url("/fine"), "a"));
    const int before = server.requests();
    EXPECT_FALSE(upload(PexImage::make({.size = {10, 10}}), server.url("/fine"), "blank"));
    EXPECT_EQ(server.requests(), before);
    pex::NetworkLimits::setCurrent({});
}

TEST(UploadTest, TheTaskKeepsTheImage) {
    const HttpServer server([](const HttpServer::Exchange& exchange) { exchange.answer("200 OK", ""); });
    auto image = PexImage::make(photoLike(20, 20));
    pex::Task<bool> task = image->uploadAsJpeg({.to = server.url("/"), .withName = "a", .quality = 1});
    image.reset();
    EXPECT_TRUE(task.get());
}

} // namespace
