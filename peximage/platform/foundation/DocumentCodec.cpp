#include "peximage/platform/foundation/DocumentCodec.h"

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

} // namespace pex
