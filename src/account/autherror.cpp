#include "account/autherror.h"

using namespace Qt::StringLiterals;

AuthError::AuthError(Kind kind, QString message)
    : m_kind(kind), m_message(std::move(message)), m_what(errorDescription().toUtf8())
{
}

QString AuthError::errorDescription() const
{
    switch (m_kind) {
    case Kind::NetworkError:
        return u"Network error: "_s + m_message;
    case Kind::InvalidResponse:
        return u"Unexpected response from server: "_s + m_message;
    case Kind::ServerError:
        return u"Server error: "_s + m_message;
    case Kind::ConvexNotConfigured:
        return u"Backend URL is not configured. Please set it in Settings → Advanced."_s;
    case Kind::InvalidURL:
        return u"Invalid backend URL."_s;
    case Kind::TokenExpired:
        return u"This sign-in link has expired. Please log in again on Tamloweb."_s;
    case Kind::EmailNotFound:
        return u"Account not found. Please register on Tamloweb."_s;
    case Kind::Unauthorized:
        return u"Session expired. Please log in again."_s;
    }
    return {};
}
