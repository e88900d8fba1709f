#include "AIInteraction.h"

#include "RecordDefaults.h"
#include "core/Clock.h"

using namespace Qt::StringLiterals;

AIInteraction::AIInteraction(QString feature_, QString prompt_, QString response_,
                             std::optional<QString> referenceId_,
                             std::optional<QString> referenceType_,
                             std::optional<qint64> durationMs_, QString promptVersion_,
                             QString provider_)
    : id(QUuid::createUuid())
    , feature(std::move(feature_))
    , prompt(std::move(prompt_))
    , response(std::move(response_))
    , referenceId(std::move(referenceId_))
    , referenceType(std::move(referenceType_))
    , durationMs(durationMs_)
    , promptVersion(std::move(promptVersion_))
    , provider(provider_.isNull() ? u""_s : std::move(provider_))
    , createdAt(Clock::now())
{
}

const Entity &AIInteraction::staticEntity()
{
    static const Entity entity =
        EntityBuilder<AIInteraction>(u"AIInteraction"_s)
            .attribute(u"id"_s, &AIInteraction::id, RecordDefaults::newId)
            .attribute(u"feature"_s, &AIInteraction::feature, RecordDefaults::emptyText)
            .attribute(u"prompt"_s, &AIInteraction::prompt, RecordDefaults::emptyText)
            .attribute(u"response"_s, &AIInteraction::response, RecordDefaults::emptyText)
            .attribute(u"referenceId"_s, &AIInteraction::referenceId, RecordDefaults::absent)
            .attribute(u"referenceType"_s, &AIInteraction::referenceType, RecordDefaults::absent)
            .attribute(u"durationMs"_s, &AIInteraction::durationMs, RecordDefaults::absent)
            .attribute(u"promptVersion"_s, &AIInteraction::promptVersion,
                       RecordDefaults::text("v1"))
            .attribute(u"provider"_s, &AIInteraction::provider, RecordDefaults::emptyText)
            .attribute(u"createdAt"_s, &AIInteraction::createdAt, RecordDefaults::now)
            .build();
    return entity;
}
