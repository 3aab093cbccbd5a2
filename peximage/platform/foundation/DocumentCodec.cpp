#include "peximage/platform/foundation/DocumentCodec.h"

#include "peximage/platform/foundation/Base64.h"

namespace pex {

bool failDocument(DocumentError* error, std::string problem) {
    if (error) *error = {.path = {}, .problem = std::move(problem)};
    return false;
}

bool failMissing(DocumentError* error) {
    if (error) error->problem += ", found nothing";
    return false;
}

bool failInside(DocumentError* error, std::string_view step) {
    if (!error) return false;
    const bool joined = error->path.empty() || error->path.starts_with('[');
    error->path = std::string(step) + (joined ? "" : ".") + error->path;
    return false;
}

void DocumentCodec<Data>::write(DocumentWriter& writer, const Data& value) {
    writer.text(base64::encode(value.bytes()));
}

bool DocumentCodec<Data>::read(DocumentValue value, Data& target, DocumentError* error) {
    const std::optional<std::string_view> text = value.text();
    auto bytes = text ? base64::decode(*text) : std::nullopt;
    if (!bytes) return failDocument(error, "expected bytes as base64 text");
    target = Data(std::move(*bytes));
    return true;
}

} // namespace pex
