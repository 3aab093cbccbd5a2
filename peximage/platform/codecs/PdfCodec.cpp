#include "peximage/platform/codecs/ImageCodec.h"
#include "peximage/platform/codecs/PdfDocument.h"
#include "peximage/platform/codecs/PdfModule.h"
#include "peximage/platform/codecs/PdfPageSource.h"

#include <cmath>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

namespace pex {
namespace {

bool isPdf(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view signature = "%PDF-";
    return bytes.size() >= signature.size() &&
           std::memcmp(bytes.data(), signature.data(), signature.size()) == 0;
}

/// The whole file is needed, since the sizes of pages stand at its end.
std::optional<Data> allBytes(const CGDataProvider& provider, const ImageLimits& limits) {
    if (!provider.data().empty()) return provider.data();
    if (!limits.allowsBytes(provider.size())) return std::nullopt;
    std::vector<std::uint8_t> bytes(provider.size());
    if (provider.read(0, bytes) != bytes.size()) return std::nullopt;
    return Data(std::move(bytes));
}

std::optional<OpenedImage> openPdfPage(const CGDataProvider& provider, const ImageLimits& limits, int page) {
    const std::optional<Data> bytes = allBytes(provider, limits);
    const auto document = bytes ? PdfDocument::open(*bytes) : nullptr;
    if (!document) return std::nullopt;
    const CGSize points = document->pageSize(page);
    const double width = std::ceil(points.width), height = std::ceil(points.height);
    constexpr double maxSide = 1e9;
    if (!(width >= 1 && width < maxSide && height >= 1 && height < maxSide)) return std::nullopt;
    const PixelSize size{static_cast<int>(width), static_cast<int>(height)};
    if (!limits.allows(size.width, size.height)) return std::nullopt;

    OpenedImage opened;
    opened.properties.format = ImageFormat::pdf;
    opened.properties.pixelWidth = size.width;
    opened.properties.pixelHeight = size.height;
    opened.properties.hasAlpha = true;
    opened.properties.pages = document->pageCount();
    opened.source = std::make_shared<PdfPageSource>(*bytes, page, size);
    return opened;
}

std::optional<OpenedImage> openPdf(const CGDataProvider& provider, const ImageLimits& limits) {
    return openPdfPage(provider, limits, 0);
}

} // namespace

const ImageCodec pdfCodec{ImageFormat::pdf, isPdf,   openPdf, nullptr,    PdfModule::name,
                          nullptr,          nullptr, nullptr, openPdfPage};

} // namespace pex
