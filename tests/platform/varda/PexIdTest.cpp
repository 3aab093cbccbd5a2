#include "peximage/platform/varda/PexId.h"

#include <gtest/gtest.h>

namespace {

TEST(PexIdTest, DigestsAreThoseOfMd5) {
    EXPECT_EQ(pex::PexId::md5(""), "d41d8cd98f00b204e9800998ecf8427e"); // RFC 1321
    EXPECT_EQ(pex::PexId::md5("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(pex::PexId::md5("h\xC3\xA9llo"), "be50e8478cf24ff3595bc7307fb91b50"); // md5sum
}

} // namespace
