#include "peximage/platform/foundation/DocumentTree.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace pex {
namespace {

/// The parser's message without its prefix, and without the offending text, which may be anything.
std::string syntaxProblem(std::string message) {
    const std::size_t begin = message.find("] ");
    if (begin != std::string::npos) message.erase(0, begin + 2);
    message.erase(std::min(message.find("; last read: '"), message.size()));
    return message;
}

} // namespace

/// Takes the parser's events. Each returns false to stop it.
class DocumentTreeBuilder {
  public:
    using Json = nlohmann::json;
    using Node = DocumentTree::Node;
    using Kind = DocumentTree::Kind;

    DocumentTreeBuilder(DocumentTree& tree, const DocumentLimits& limits) : tree_(tree), limits_(limits) {}

    bool null() { return add(Node(Kind::null)); }
    bool boolean(bool value) {
        Node node(Kind::boolean);
        node.boolean = value;
        return add(node);
    }
    bool number_integer(std::int64_t value) {
        Node node(Kind::integer);
        node.integer = value;
        return add(node);
    }
    bool number_unsigned(std::uint64_t value) {
        if (value > std::uint64_t{std::numeric_limits<std::int64_t>::max()})
            return number_float(static_cast<double>(value), {});
        return number_integer(static_cast<std::int64_t>(value));
    }
    bool number_float(double value, const std::string&) {
        Node node(Kind::number);
        node.number = value;
        return add(node);
    }
    bool string(const std::string& value) { return add(textNode(value)); }
    bool binary(const Json::binary_t&) { return false; } // never comes from a text

    bool start_object(std::size_t) { return open(Kind::object); }
    bool key(const std::string& name) {
        tree_.nodes_.push_back(textNode(name));
        return true;
    }
    bool end_object() { return close(); }
    bool start_array(std::size_t) { return open(Kind::list); }
    bool end_array() { return close(); }

    bool parse_error(std::size_t, const std::string&, const Json::exception& error) {
        return fail(syntaxProblem(error.what()));
    }

    std::string problem;

  private:
    Node textNode(const std::string& value) {
        Node node(Kind::text);
        node.size = static_cast<std::uint32_t>(value.size());
        node.offset = tree_.texts_.size();
        tree_.texts_ += value;
        return node;
    }

    bool add(const Node& node) {
        if (++values_ > limits_.values) return fail("too many values");
        if (!open_.empty()) ++tree_.nodes_[open_.back()].size;
        tree_.nodes_.push_back(node);
        return true;
    }

    bool open(Kind kind) {
        if (open_.size() >= limits_.depth) return fail("nested too deeply");
        if (!add(Node(kind))) return false;
        open_.push_back(tree_.nodes_.size() - 1);
        return true;
    }

    bool close() {
        tree_.nodes_[open_.back()].end = tree_.nodes_.size();
        open_.pop_back();
        return true;
    }

    bool fail(std::string why) {
        problem = std::move(why);
        return false;
    }

    DocumentTree& tree_;
    const DocumentLimits& limits_;
    std::vector<std::size_t> open_;
    std::size_t values_ = 0;
};

std::optional<DocumentTree> DocumentTree::parse(std::string_view text, DocumentError* error,
                                                const DocumentLimits& limits) {
    std::optional<DocumentTree> tree(std::in_place);
    DocumentTreeBuilder builder(*tree, limits);
    // The parser takes a zero byte for the end of the text. A file whose end was never written is full
    // of them.
    if (text.size() > limits.bytes)
        builder.problem = "too long";
    else if (text.find('\0') != std::string_view::npos)
        builder.problem = "NUL byte at " + std::to_string(text.find('\0'));
    else if (nlohmann::json::sax_parse(text.data(), text.data() + text.size(), &builder))
        return tree;
    if (error) *error = {.path = {}, .problem = std::move(builder.problem)};
    return std::nullopt;
}

DocumentValue DocumentTree::root() const { return {this, 0}; }

std::optional<bool> DocumentValue::boolean() const {
    if (!exists() || node().kind != Kind::boolean) return std::nullopt;
    return node().boolean;
}

std::optional<double> DocumentValue::number() const {
    if (!exists()) return std::nullopt;
    if (node().kind == Kind::number) return node().number;
    if (node().kind == Kind::integer) return static_cast<double>(node().integer);
    constexpr std::array<std::string_view, 1> name{"nonFinite"};
    std::array<DocumentValue, 1> found;
    locate(name, found);
    const auto which = found[0].text();
    if (which == "nan") return std::numeric_limits<double>::quiet_NaN();
    if (which == "inf") return std::numeric_limits<double>::infinity();
    if (which == "-inf") return -std::numeric_limits<double>::infinity();
    return std::nullopt;
}

std::optional<std::int64_t> DocumentValue::integer() const {
    if (!exists()) return std::nullopt;
    if (node().kind == Kind::integer) return node().integer;
    constexpr double limit = 9223372036854775808.0; // 2^63
    if (node().kind != Kind::number || std::trunc(node().number) != node().number) return std::nullopt;
    if (node().number < -limit || node().number >= limit) return std::nullopt;
    return static_cast<std::int64_t>(node().number);
}

std::optional<std::string_view> DocumentValue::text() const {
    if (!exists() || node().kind != Kind::text) return std::nullopt;
    return std::string_view(tree_->texts_).substr(node().offset, node().size);
}

void DocumentValue::locate(std::span<const std::string_view> names, std::span<DocumentValue> found) const {
    if (!isObject() || names.empty()) return;
    std::size_t expected = 0;
    for (DocumentValue key = first(); key.index_ < node().end;) {
        const DocumentValue value = key.next();
        const std::string_view name = *key.text();
        for (std::size_t tried = 0; tried < names.size(); ++tried, expected = (expected + 1) % names.size()) {
            if (names[expected] != name) continue;
            found[expected] = value;
            expected = (expected + 1) % names.size();
            break;
        }
        key = value.next();
    }
}

} // namespace pex
