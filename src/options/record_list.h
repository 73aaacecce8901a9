#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "options/property_keys.h"

namespace qvio {

/// The properties of one device or interface, ordered by key, so that the same device always gives the same
/// text.
using PropertyRecord = std::map<std::string, std::string, std::less<>>;
using RecordList = std::vector<PropertyRecord>;

/// Writes the characters that separate records as codes: "%" "%25", line feed "%0A", "|" "%7C", "=" "%3D".
std::string EscapeValue(std::string_view value);

/// Reads the codes back. Any other percent sequence, codes in small letters included, stays as it is.
std::string UnescapeValue(std::string_view value);

/// One record a line, items KEY=VALUE joined by "|", values escaped. Keys that a record lacks are skipped; a
/// record with no selected key writes no line.
std::string WriteRecordList(const RecordList& records, const Selection& keys);

/// Reads such a text; of a key that occurs twice in a record the first value stays. The empty text is the
/// empty list; empty lines and items are not. Throws std::invalid_argument with "Invalid format".
RecordList ReadRecordList(std::string_view text);

/// The plain values of one key, one a line; a record without the key writes no line.
std::string WriteValues(const RecordList& records, std::string_view key);

}  // namespace qvio
