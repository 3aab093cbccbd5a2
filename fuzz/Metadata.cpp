#include "peximage/platform/codecs/ImageCodec.h"
#include "peximage/platform/codecs/jpeg/JpegMetadata.h"

/// A file of any kind as the source of metadata, and the bytes themselves as each of the blocks.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    const pex::Data data(std::vector<std::uint8_t>(bytes, bytes + count));
    const pex::ImageMetadata blocks{data, data, data, data};
    for (const pex::ImageMetadata& metadata : {pex::ImageMetadata::of(data), blocks}) {
        pex::ImageMetadata upright = metadata.uprighted(30, 20);
        pex::jpegMetadataSegments(upright.withoutLocation().heldBy(pex::ImageFormat::jpeg));
        metadata.heldBy(pex::ImageFormat::png).lostIn(upright);
        upright.setExifField(pex::ExifDirectory::gps, 2, std::vector<double>{1, 2, 3});
        upright.setXmpProperty("http://ns.adobe.com/xap/1.0/", "Rating", "1");
        upright.setIptcField(25, {"a"});
    }
    return 0;
}
