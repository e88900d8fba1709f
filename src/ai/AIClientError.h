#pragma once

#include <QString>

#include <exception>
#include <optional>

// What went wrong talking to a provider, in words the user reads as they stand.
class AIClientError : public std::exception {
public:
    enum class Kind {
        badResponse,
        networkFailure,
        rateLimited,
        providerError,
        appleModelUnavailable,
        missingAPIKey,
        missingEndpoint,
        timedOut,
        invalidAPIKey,
        insufficient,
    };

    static AIClientError badResponse(QString text);
    // The failure's own description, with any key already taken out.
    static AIClientError networkFailure(QString description);
    static AIClientError rateLimited(std::optional<qint64> retryAfter);
    static AIClientError providerError(int status, QString message);
    static AIClientError appleModelUnavailable(QString text);
    static AIClientError missingAPIKey() { return AIClientError(Kind::missingAPIKey); }
    static AIClientError missingEndpoint() { return AIClientError(Kind::missingEndpoint); }
    static AIClientError timedOut() { return AIClientError(Kind::timedOut); }
    static AIClientError invalidAPIKey() { return AIClientError(Kind::invalidAPIKey); }
    static AIClientError insufficient() { return AIClientError(Kind::insufficient); }

    Kind kind() const { return m_kind; }
    const QString &text() const { return m_text; }
    int status() const { return m_status; }
    std::optional<qint64> retryAfter() const { return m_retryAfter; }

    QString errorDescription() const;
    const char *what() const noexcept override { return "AIClientError"; }

private:
    explicit AIClientError(Kind kind)
        : m_kind(kind)
    {
    }

    Kind m_kind;
    QString m_text;
    int m_status = 0;
    std::optional<qint64> m_retryAfter;
};
