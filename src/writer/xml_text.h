// Values written into the XML parts of a Word package. Story text can come
// from any document, so besides the markup characters everything that XML 1.0
// cannot carry is removed here, rather than producing a part no reader accepts.
#pragma once

#include <string>
#include <string_view>

namespace inkharbour::writer {

enum class XmlContext { text, attribute };

// Appends `value` to `out` with "&", "<", ">" and the double quote replaced by
// their entity references (one pass, so the result is that of replacing them
// in this order). A carriage return is written as "&#13;", and in attribute
// values a tab and a line feed as "&#9;" and "&#10;", because a parser
// normalises their literal forms away. C0 controls other than tab, line feed
// and carriage return, and U+FFFE and U+FFFF, are dropped; each malformed
// UTF-8 sequence (surrogates and overlong forms included) becomes U+FFFD.
void appendEscaped(std::string& out, std::string_view value,
                   XmlContext context = XmlContext::text);

std::string escaped(std::string_view value, XmlContext context = XmlContext::text);

// True when `value` is well-formed UTF-8 without control characters (C0, DEL,
// C1) and without U+FFFE and U+FFFF: text that every consumer, file systems
// included, takes literally.
bool isPlainText(std::string_view value);

}  // namespace inkharbour::writer
