# Everything comes from the distribution; nothing is downloaded while configuring.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(JPEG REQUIRED)
find_package(PNG REQUIRED)
find_package(nlohmann_json REQUIRED)
pkg_check_modules(LCMS2 REQUIRED IMPORTED_TARGET lcms2)
pkg_check_modules(LIBEXIF REQUIRED IMPORTED_TARGET libexif)
pkg_check_modules(LIBDEFLATE REQUIRED IMPORTED_TARGET libdeflate)
pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET libutf8proc)

# Highway is used for its headers alone: the library's own dispatch (raster/kernels) picks the instruction
# set, since loading Highway's shared object costs more than the rest of the tool's start.
find_path(HWY_INCLUDE_DIR hwy/highway.h REQUIRED)
