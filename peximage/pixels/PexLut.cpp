#include "peximage/pixels/PexLut.h"

#include <array>
#include <utility>

namespace pex {

std::optional<PexLut> PexLut::make(const Data& bytes) {
    auto cube = ColorCube::fromBytes(bytes);
    auto filter = CIFilter::make("CIColorCube");
    if (!cube || !filter) return std::nullopt;
    filter->setValue(static_cast<double>(cube->side()), "inputCubeDimension");
    filter->setValue(std::move(cube), "inputCubeData");
    PexLut lut;
    lut.data = bytes;
    lut.filter = std::move(filter);
    return lut;
}

std::optional<PexLut> PexLut::make(const URL& file) {
    const std::optional<Data> bytes = Data::contentsOf(file);
    return bytes ? make(*bytes) : std::nullopt;
}

std::optional<CIImage> PexLut::applyTo(const std::optional<CIImage>& image) const {
    if (!image || !filter) return std::nullopt;
    CIFilter lookUp = *filter;
    lookUp.setValue(*image, kCIInputImageKey);
    const std::optional<CIImage> output = lookUp.outputImage();
    auto placed = CIFilter::make("CIAffineTransform");
    if (!output || !placed) return std::nullopt;
    placed->setValue(*output, kCIInputImageKey);
    placed->setValue(1.0, kCIInputScaleKey);
    placed->setValue(CGPoint{0, 0}, kCIInputTransformKey);
    return placed->outputImage();
}

void DocumentCodec<PexLut>::write(DocumentWriter& writer, const PexLut& value) {
    writer.beginObject();
    writer.key("data");
    DocumentCodec<Data>::write(writer, value.data);
    writer.endObject();
}

bool DocumentCodec<PexLut>::read(DocumentValue value, PexLut& target, DocumentError* error) {
    if (!value.isObject()) return failDocument(error, "expected an object");
    const std::array<std::string_view, 1> names{"data"};
    std::array<DocumentValue, 1> found{};
    value.locate(names, found);
    Data bytes;
    if (!DocumentCodec<Data>::read(found[0], bytes, error)) {
        if (!found[0].exists()) failMissing(error);
        return failInside(error, "data");
    }
    if (auto made = PexLut::make(bytes))
        target = std::move(*made);
    else
        target.data = std::move(bytes);
    return true;
}

} // namespace pex
