#pragma once

#include "core/store/Entity.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

#include <optional>

// One call to a text-generation provider, kept as a log.
class AIInteraction final : public Record {
public:
    struct Loading {};
    explicit AIInteraction(Loading) {}
    AIInteraction(QString feature, QString prompt, QString response,
                  std::optional<QString> referenceId = std::nullopt,
                  std::optional<QString> referenceType = std::nullopt,
                  std::optional<qint64> durationMs = std::nullopt,
                  QString promptVersion = QStringLiteral("v1"), QString provider = QString());

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    QString feature;
    QString prompt;
    QString response;
    std::optional<QString> referenceId;
    std::optional<QString> referenceType;
    std::optional<qint64> durationMs;
    QString promptVersion;
    QString provider;
    QDateTime createdAt;
};
