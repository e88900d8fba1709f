#pragma once

#include <QString>

#include <qcoro/qcorotask.h>

#include <optional>

// One prompt in, one text out. Failures are thrown as AIClientError. The client must outlive
// the call it is awaited for.
class AIClient {
public:
    virtual ~AIClient() = default;

    virtual QCoro::Task<QString> respond(QString prompt, std::optional<QString> system) = 0;
    QCoro::Task<QString> respond(QString prompt)
    {
        return respond(std::move(prompt), std::nullopt);
    }
};
