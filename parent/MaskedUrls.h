#pragma once

#include <QString>

namespace mediaworker::parent {

/// A text in which the URLs have "***" in the place of user name and password: "http://***@host/live.flv".
/// The rest is as it was, a query included.
///
/// For everything that is shown, printed or logged. Where it is not clear what belongs to a password (one
/// with a slash or a blank in it, which should have been encoded), rather too much is masked. Takes any text,
/// in linear time.
[[nodiscard]] QString maskedUrls(const QString& text);

} // namespace mediaworker::parent
