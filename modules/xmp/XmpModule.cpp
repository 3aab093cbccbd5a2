#include "peximage/platform/codecs/metadata/XmpModule.h"

#include "peximage/platform/foundation/Module.h"

#include <cstring>
#include <expat.h>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Module = pex::XmpModule;

constexpr char separator = '\n';
constexpr std::string_view rdf = "http://www.w3.org/1999/02/22-rdf-syntax-ns#\nRDF";

struct ParserFree {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};

struct Element {
    std::size_t begin, tagEnd;
    std::string text{};
    bool isSimple = true;
};

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

/// One reading of one packet.
class Scan {
  public:
    Scan(const char* packet, std::size_t size, void (*found)(void*, const Module::Node&), void* context)
        : packet_(packet, size),
          found_(found),
          context_(context),
          owner_(XML_ParserCreateNS("UTF-8", separator)),
          parser_(owner_.get()) {}

    bool run() {
        if (parser_ == nullptr || packet_.size() > std::numeric_limits<int>::max()) return false;
        XML_SetUserData(parser_, this);
        XML_SetElementHandler(parser_, start, end);
        XML_SetCharacterDataHandler(parser_, text);
        XML_SetStartDoctypeDeclHandler(parser_, refuse);
        const int length = static_cast<int>(packet_.size());
        return XML_Parse(parser_, packet_.data(), length, XML_TRUE) == XML_STATUS_OK;
    }

  private:
    /// Nothing may be thrown through the parser.
    template <class Work>
    static void guarded(void* scan, const Work& work) {
        auto& self = *static_cast<Scan*>(scan);
        try {
            work(self);
        } catch (const std::bad_alloc&) {
            XML_StopParser(self.parser_, XML_FALSE);
        }
    }

    static void start(void* scan, const char* name, const char** attributes) {
        guarded(scan, [&](Scan& self) { self.startElement(name, attributes); });
    }
    static void end(void* scan, const char* name) {
        guarded(scan, [&](Scan& self) { self.endElement(name); });
    }
    static void text(void* scan, const char* text, int count) {
        guarded(scan,
                [&](Scan& self) { self.open_.back().text.append(text, static_cast<std::size_t>(count)); });
    }
    static void refuse(void* scan, const char*, const char*, const char*, int) {
        XML_StopParser(static_cast<Scan*>(scan)->parser_, XML_FALSE);
    }

    int depth() const { return rdfLevel_ < 0 ? -1 : static_cast<int>(open_.size()) - rdfLevel_; }

    void startElement(const char* name, const char** attributes) {
        if (rdfLevel_ < 0 && name == rdf) rdfLevel_ = static_cast<int>(open_.size());
        if (!open_.empty()) open_.back().isSimple = false;
        const auto begin = static_cast<std::size_t>(XML_GetCurrentByteIndex(parser_));
        const auto count = static_cast<std::size_t>(XML_GetCurrentByteCount(parser_));
        tellAttributes(begin, begin + count, attributes);
        open_.push_back({begin, begin + count});
    }

    /// The parser has read the tag already: it is well-formed, and its attributes come in this order.
    void tellAttributes(std::size_t at, std::size_t end, const char** attributes) {
        while (at < end && !isSpace(packet_[at]))
            ++at;
        while (*attributes != nullptr && at < end) {
            const std::size_t begin = at;
            while (at < end && isSpace(packet_[at]))
                ++at;
            const std::size_t nameAt = at, equals = packet_.find('=', at);
            const std::size_t quote = packet_.find_first_of("\"'", equals);
            if (quote >= end) return;
            const std::size_t close = packet_.find(packet_[quote], quote + 1);
            at = close + 1;
            const std::string_view raw = packet_.substr(nameAt, equals - nameAt);
            if (raw.starts_with("xmlns:") || raw == "xmlns" || (raw.starts_with("xmlns") && isSpace(raw[5])))
                continue;
            found_(context_, {attributes[0], attributes[1], begin, at, quote + 1, close, depth() + 1, true});
            attributes += 2;
        }
    }

    void endElement(const char* name) {
        const Element element = std::move(open_.back());
        open_.pop_back();
        const bool isEmpty = packet_[element.tagEnd - 2] == '/';
        const auto closing = static_cast<std::size_t>(XML_GetCurrentByteIndex(parser_));
        const auto count = static_cast<std::size_t>(XML_GetCurrentByteCount(parser_));
        found_(context_, {name, element.isSimple ? element.text.c_str() : nullptr, element.begin,
                          isEmpty ? element.tagEnd : closing + count, isEmpty ? 0 : element.tagEnd,
                          isEmpty ? 0 : closing, depth(), false});
    }

    std::string_view packet_;
    void (*found_)(void*, const Module::Node&);
    void* context_;
    std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserFree> owner_;
    XML_Parser parser_;
    std::vector<Element> open_{};
    int rdfLevel_ = -1;
};

bool scan(const char* packet, std::size_t size, void (*found)(void*, const Module::Node&), void* context) {
    return Scan(packet, size, found, context).run();
}

constexpr Module functions{scan};

} // namespace

extern "C" __attribute__((visibility("default")))
const pex::ModuleEntry pexModule{Module::version, &functions};
