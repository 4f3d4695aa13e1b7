// The page of an interactive report: scripts and styles, as the build has put them into this library (cmake/Report.cmake).
#pragma once

#include <string_view>

namespace Tarnwick::DSO::Workbench {

/// A text that stands, byte for byte, between the tags of its element.
struct BundledText {
    std::string_view text;
    std::string_view hash;  ///< as a Content-Security-Policy names it, without the quotes: sha256-...
};

BundledText ReportScript();  ///< of the element script, behind the one that holds the document
BundledText ReportStyle();   ///< of the element style

}  // namespace Tarnwick::DSO::Workbench
