#pragma once

#include <cstdint>
#include <vector>

namespace pex::heif {

struct CodedSize {
    std::int64_t width, height;
};

/// The sizes that all parameter sets in a stretch of coded picture tell, in pixels: of HEVC (units behind
/// their lengths of four bytes), of AV1 (its own units), and of the containers' configurations for them.
std::vector<CodedSize> sizesInHevc(const std::vector<std::uint8_t>& units);
std::vector<CodedSize> sizesInAv1(const std::vector<std::uint8_t>& units);
std::vector<CodedSize> sizesInHevcConfiguration(const std::vector<std::uint8_t>& bytes);
std::vector<CodedSize> sizesInAv1Configuration(const std::vector<std::uint8_t>& bytes);

} // namespace pex::heif
