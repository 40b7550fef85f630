#pragma once

#include <string>
#include <string_view>

// Release notes arrive as HTML (GitHub renders them from Markdown); the notch
// shows them as plain text.
namespace pelmora::ReleaseNotes {

// Text as the HTML reads:
// - script and style elements go whole (an unclosed one runs to the end),
//   as do comments; every other tag goes, leaving its text;
// - "<br>" and the ends of headings, "div", "ul", "ol", "li", "tr", "pre"
//   and "blockquote" break the line; paragraphs ("p", "h1"..."h6" starts,
//   "hr") are set apart by one blank line; each list item starts with "• ";
// - runs of blanks and line breaks in the source read as one blank, except
//   inside "pre", where the source's lines are kept;
// - "&nbsp;" (as a plain blank), "&lt;", "&gt;", "&quot;", "&#39;", "&amp;" and
//   numeric character references are decoded in one pass, so "&amp;lt;"
//   gives "&lt;";
// - blanks at line ends, blank lines at both ends, and more than one blank
//   line in a row are dropped.
// Time and memory are linear in the input, whatever it holds.
std::string plainText(std::string_view html);

} // namespace pelmora::ReleaseNotes
