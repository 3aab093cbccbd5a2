#include "modules/pdf/PageUnits.h"

#include <GlobalParams.h>
#include <PDFDoc.h>
#include <Stream.h>
#include <algorithm>
#include <cmath>
#include <string_view>

namespace {

/// Nothing said about the unit where the word is not, unless objects are packed.
bool maySayUnits(const std::uint8_t* bytes, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    return text.find("UserUnit") != text.npos || text.find("ObjStm") != text.npos;
}

} // namespace

PageUnits::PageUnits(const std::uint8_t* bytes, std::size_t size)
    : bytes_(bytes), size_(size), saysUnits_(maySayUnits(bytes, size)) {}

PageUnits::~PageUnits() = default;

bool PageUnits::open() {
    if (document_) return document_->isOk();
    engine_ = std::make_unique<GlobalParamsIniter>([](ErrorCategory, Goffset, const char*) {});
    auto* text = const_cast<char*>(reinterpret_cast<const char*>(bytes_)); // which is only read
    document_ =
        std::make_unique<PDFDoc>(new MemStream(text, 0, static_cast<Goffset>(size_), Object(objNull)));
    return document_->isOk();
}

double PageUnits::of(int page) {
    if (!saysUnits_ || !open()) return 1;
    const Ref* place = document_->getCatalog()->getPageRef(page + 1);
    if (place == nullptr) return 1;
    const Object dictionary = document_->getXRef()->fetch(*place);
    const Object unit = dictionary.isDict() ? dictionary.dictLookup("UserUnit") : Object(objNull);
    const double points = unit.isNum() ? unit.getNum() : 1;
    return points > 0 && std::isfinite(points) ? points : 1;
}
