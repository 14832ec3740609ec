#pragma once

#include <QString>

// Bearer secrets: sign-in link tokens and session tokens. Only their digests are ever stored.
namespace SecretToken {
// 256 bits from the system's random source, base64url without padding (43 characters).
[[nodiscard]] QString generate();
// The SHA-256 of the token's text, in lower-case hex.
[[nodiscard]] QString digest(const QString &token);
} // namespace SecretToken
