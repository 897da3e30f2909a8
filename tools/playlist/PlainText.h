#pragma once

#include <QString>

namespace mediaworker {

/// A name of others' making as one line that can be shown: nothing in it breaks the line, moves what stands
/// around it, or is there without being seen. Control and format characters (marks of direction, joiners),
/// line separators and code points that mean nothing are left out, white space is single blanks. Shortened
/// with "…".
[[nodiscard]] QString plainText(const QString& text);

/// The longest that plainText() gives, in UTF-16 units.
inline constexpr int kLongestPlainText = 120;

} // namespace mediaworker
