# Third-party libraries of the desktop platform and the media tools, found once and shared as
# global imported targets:
#   Media::exiv2  Media::heif  Media::avformat (with avcodec, avutil)  Media::swscale
#   Media::sqlite
#   nlohmann_json::nlohmann_json  Qt6::Gui (only where a folder asks for it)
include_guard(GLOBAL)

find_package(PkgConfig REQUIRED)
pkg_check_modules(SOLVANTA_EXIV2 REQUIRED IMPORTED_TARGET GLOBAL exiv2)
pkg_check_modules(SOLVANTA_HEIF REQUIRED IMPORTED_TARGET GLOBAL libheif)
pkg_check_modules(SOLVANTA_AV REQUIRED IMPORTED_TARGET GLOBAL libavformat libavcodec libavutil)
pkg_check_modules(SOLVANTA_SWSCALE REQUIRED IMPORTED_TARGET GLOBAL libswscale)
find_package(SQLite3 REQUIRED)
find_package(nlohmann_json 3 REQUIRED)

add_library(Media::exiv2 ALIAS PkgConfig::SOLVANTA_EXIV2)
add_library(Media::heif ALIAS PkgConfig::SOLVANTA_HEIF)
add_library(Media::avformat ALIAS PkgConfig::SOLVANTA_AV)
add_library(Media::swscale ALIAS PkgConfig::SOLVANTA_SWSCALE)
add_library(Media::sqlite ALIAS SQLite::SQLite3)
