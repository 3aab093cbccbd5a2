#pragma once

#include "peximage/platform/codecs/PdfModule.h"

#include <cstdint>
#include <sys/types.h>
#include <utility>

/// A file descriptor, closed at the end.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor();

    explicit operator bool() const { return number_ >= 0; }
    int number() const { return number_; }

  private:
    int number_ = -1;
};

/// Draws the pages of a document in a program of its own, "pdf-draw" beside the module: what draws pages can
/// neither be interrupted nor trusted with every stranger's file, and a program can be ended. It is started
/// for the first page, serves all further ones, and is started anew after a page that was its end. One thread
/// at a time.
class PageDrawing {
  public:
    /// The bytes must outlive it.
    PageDrawing(const std::uint8_t* bytes, std::size_t size) : bytes_(bytes), size_(size) {}
    ~PageDrawing() { end(); }
    PageDrawing(const PageDrawing&) = delete;
    PageDrawing& operator=(const PageDrawing&) = delete;

    /// As `PdfModule::render`.
    pex::PdfModule::Drawn draw(const pex::PdfModule::Drawing& drawing);

  private:
    bool start();
    void end();
    pex::PdfModule::Drawn ask(const pex::PdfModule::Drawing& drawing);
    pex::PdfModule::Drawn waitForAnswer(double seconds);

    const std::uint8_t* bytes_;
    std::size_t size_;
    Descriptor socket_, pixels_;
    pid_t program_ = -1;
    pid_t starter_ = -1; // a process that forks off this one leaves the program alone
};
