#include "ai/AIClientError.h"

using namespace Qt::StringLiterals;

AIClientError AIClientError::badResponse(QString text)
{
    AIClientError error(Kind::badResponse);
    error.m_text = std::move(text);
    return error;
}

AIClientError AIClientError::networkFailure(QString description)
{
    AIClientError error(Kind::networkFailure);
    error.m_text = std::move(description);
    return error;
}

AIClientError AIClientError::rateLimited(std::optional<qint64> retryAfter)
{
    AIClientError error(Kind::rateLimited);
    error.m_retryAfter = retryAfter;
    return error;
}

AIClientError AIClientError::providerError(int status, QString message)
{
    AIClientError error(Kind::providerError);
    error.m_status = status;
    error.m_text = std::move(message);
    return error;
}

AIClientError AIClientError::appleModelUnavailable(QString text)
{
    AIClientError error(Kind::appleModelUnavailable);
    error.m_text = std::move(text);
    return error;
}

QString AIClientError::errorDescription() const
{
    switch (m_kind) {
    case Kind::badResponse:
        return u"AI provider returned an unexpected response: "_s + m_text;
    case Kind::networkFailure:
        return u"Network error: "_s + m_text;
    case Kind::rateLimited:
        if (m_retryAfter)
            return u"Rate limited by the AI provider. Try again in %1s."_s.arg(*m_retryAfter);
        return u"Rate limited by the AI provider. Try again in a moment."_s;
    case Kind::providerError:
        return u"AI provider error (%1): "_s.arg(m_status) + m_text;
    case Kind::appleModelUnavailable:
        return m_text;
    case Kind::missingAPIKey:
        return u"No API key configured. Add one in Settings → AI Provider."_s;
    case Kind::missingEndpoint:
        return u"No address configured for your AI endpoint. Add one in Settings → AI Provider."_s;
    case Kind::timedOut:
        return u"The AI provider didn't respond in time. Check your connection and try again."_s;
    case Kind::invalidAPIKey:
        return u"The API key was rejected. Re-enter it in Settings → AI Provider."_s;
    case Kind::insufficient:
        return u"Not enough material to generate a useful result yet."_s;
    }
    return QString();
}
