#include "peximage/platform/codecs/jpeg/encode/OptimalCode.h"

#include <algorithm>
#include <deque>
#include <numeric>

namespace pex::jpeg {
namespace {

constexpr std::size_t longest = 16;

/// The symbols that occur, rarest first; of equally rare ones the larger first.
std::vector<std::uint8_t> byRarity(const SymbolCounts& counts) {
    std::vector<std::uint8_t> symbols;
    for (int s = 255; s >= 0; --s)
        if (counts[static_cast<std::size_t>(s)] > 0) symbols.push_back(static_cast<std::uint8_t>(s));
    std::stable_sort(symbols.begin(), symbols.end(),
                     [&](std::uint8_t a, std::uint8_t b) { return counts[a] < counts[b]; });
    return symbols;
}

/// A node of the code's tree: how often it is passed, and its two branches, or none for a leaf.
struct Node {
    std::uint64_t count;
    int left, right;
};

/// Joins the two rarest nodes until one is left, the last. Leaves come rarest first, and so do the joints:
/// the rarest is always at the head of one of the two queues.
std::vector<Node> treeOver(std::vector<Node> nodes) {
    const std::size_t leaves = nodes.size();
    std::size_t leaf = 0, joint = leaves;
    const auto takeRarest = [&] {
        const bool isLeaf =
            joint == nodes.size() || (leaf < leaves && nodes[leaf].count <= nodes[joint].count);
        return static_cast<int>(isLeaf ? leaf++ : joint++);
    };
    while (nodes.size() < 2 * leaves - 1) {
        const int a = takeRarest(), b = takeRarest();
        nodes.push_back(
            {nodes[static_cast<std::size_t>(a)].count + nodes[static_cast<std::size_t>(b)].count, a, b});
    }
    return nodes;
}

/// How many leaves there are at each depth.
std::vector<int> leavesAtDepths(const std::vector<Node>& nodes) {
    std::vector<int> depths(nodes.size()), leaves(nodes.size());
    for (std::size_t i = nodes.size(); i-- > 0;) {
        if (nodes[i].left < 0) ++leaves[static_cast<std::size_t>(depths[i])];
        for (const int branch : {nodes[i].left, nodes[i].right})
            if (branch >= 0) depths[static_cast<std::size_t>(branch)] = depths[i] + 1;
    }
    return leaves;
}

/// Shortens codes of more than 16 bits: of two such siblings one takes their parent's place, and a shorter
/// leaf is split to take in the other.
void limitDepth(std::vector<int>& leaves) {
    for (std::size_t depth = leaves.size() - 1; depth > longest; --depth) {
        while (leaves[depth] > 0) {
            std::size_t split = depth - 2;
            while (leaves[split] == 0)
                --split;
            leaves[depth] -= 2;
            ++leaves[depth - 1];
            --leaves[split];
            leaves[split + 1] += 2;
        }
    }
}

} // namespace

CodeDescription optimalCode(const SymbolCounts& counts) {
    CodeDescription code;
    code.symbols = byRarity(counts);
    if (code.symbols.empty()) code.symbols.push_back(0);
    std::vector<Node> nodes{{0, -1, -1}}; // the code of ones alone, which never occurs
    for (const std::uint8_t symbol : code.symbols)
        nodes.push_back({counts[symbol], -1, -1});
    std::vector<int> leaves = leavesAtDepths(treeOver(std::move(nodes)));
    limitDepth(leaves);
    leaves.resize(longest + 1);
    for (std::size_t length = longest, spare = 1; length > 0; --length) {
        const int free = spare > 0 && leaves[length] > 0 ? 1 : 0; // the longest code is the one to keep free
        spare -= static_cast<std::size_t>(free);
        code.counts[length - 1] = static_cast<std::uint8_t>(leaves[length] - free);
    }
    std::reverse(code.symbols.begin(), code.symbols.end());
    return code;
}

SymbolCodes::SymbolCodes(const CodeDescription& description) {
    std::uint32_t code = 0, length = 1;
    auto symbol = description.symbols.begin();
    for (const std::uint8_t count : description.counts) {
        for (int i = 0; i < count; ++i, ++code, ++symbol) {
            const std::uint32_t size = *symbol & 15u;
            entries_[*symbol] = code << size << 5 | (length + size);
        }
        code <<= 1;
        ++length;
    }
}

std::uint64_t SymbolCodes::bitsOf(const SymbolCounts& counts) const {
    std::uint64_t bits = 0;
    for (std::size_t s = 0; s < counts.size(); ++s)
        bits += std::uint64_t{counts[s]} * static_cast<std::uint64_t>(length(entries_[s]));
    return bits;
}

} // namespace pex::jpeg
