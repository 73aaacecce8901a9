#pragma once

#include <map>
#include <string>
#include <string_view>

namespace qvio_tool {

/// What ends a line that is sent, by the word of --eol.
inline const std::map<std::string, std::string> kLineEnds{
    {"none", ""}, {"lf", "\n"}, {"cr", "\r"}, {"crlf", "\r\n"}};

/// Reads "48 65 6c" or "48656C". Throws CommandFailure for anything else.
std::string FromHex(std::string_view text);

/// Writes "48 65 6C".
std::string ToHex(std::string_view bytes);

/// Reads \n, \r, \t, \\ and \xNN; a backslash before anything else is refused with CommandFailure.
std::string FromEscaped(std::string_view text);

/// The bytes as a terminal may show them: tabs, line feeds and everything printable as they are, carriage
/// returns before a line feed dropped, any other control character as \xNN, so that a device cannot play
/// tricks with the terminal.
std::string Printable(std::string_view bytes);

/// The bytes as a piece of one line: every printable character of the locale as it is, all others as \xNN.
std::string OneLine(std::string_view bytes);

/// How many columns of a terminal a text of OneLine takes.
std::size_t ColumnsOf(std::string_view text);

/// The text, cut and ended by "..." where it takes more columns.
std::string CutToColumns(std::string_view text, std::size_t columns);

}  // namespace qvio_tool
