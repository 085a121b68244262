#pragma once

#include <string>

namespace zelvek {

/// What a browser would show of a text in which there may be HTML (an authority's error page, or the details
/// of its refusal), on one line: without tags, comments, scripts and styles, with characters for their
/// references, one blank for any white space. What is no HTML element's tag stays as it is, "a < b" and
/// "<anna@shop.example>" say. For people to read, not for browsers.
std::string TextOfHtml(const std::string& html);

}  // namespace zelvek
