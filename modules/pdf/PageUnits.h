#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

class PDFDoc;
class GlobalParamsIniter;

/// How many points a unit of each page's space has: one, unless the page says otherwise. One thread at a
/// time.
class PageUnits {
  public:
    /// The bytes must outlive it.
    PageUnits(const std::uint8_t* bytes, std::size_t size);
    ~PageUnits();

    double of(int page);

  private:
    bool open();

    const std::uint8_t* bytes_;
    std::size_t size_;
    bool saysUnits_;
    std::unique_ptr<GlobalParamsIniter> engine_;
    std::unique_ptr<PDFDoc> document_; // opened when it is first asked
};
