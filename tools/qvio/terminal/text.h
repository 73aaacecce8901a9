#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace qvio_tool {

/// What is sent after a line, by the word of --eol.
inline const std::map<std::string, std::string> kLineEnds{
    {"none", ""}, {"lf", "\n"}, {"cr", "\r"}, {"crlf", "\r\n"}};

/// Reads "48 65 6c", "48656C" or "0x48 0x65 0x6C". Throws CommandFailure with WrongUsage for anything else.
std::string FromHex(std::string_view text);

/// Writes "00000000  48 65 6C 0A              |Hel.|" for rows of eight bytes.
/// @param offset  of the first byte
std::string HexRow(uint64_t offset, std::string_view bytes, std::size_t bytesInRow);

/// Reads \n, \r, \t, \\ and \xNN; any other backslash is CommandFailure with WrongUsage.
std::string FromEscaped(std::string_view text);

/// The bytes as a piece of one line that cannot harm a terminal: printable characters of the locale as they
/// are; control characters, bytes that are not text and marks that reverse the direction of text as \xNN.
std::string OneLine(std::string_view bytes);

/// The same for several lines: tabs and line feeds stay, a carriage return before a line feed is dropped.
std::string Printable(std::string_view bytes);

/// The value as text in ASCII. Bytes that are not UTF-8, which devices may send, become U+FFFD.
/// @param indent  below 0: all on one line
std::string JsonText(const nlohmann::ordered_json& value, int indent);

}  // namespace qvio_tool
