#include "Document.h"

#include "RecordDefaults.h"
#include "core/Clock.h"

using namespace Qt::StringLiterals;

Document::Document(QString title_, DocumentCategory category_, QString content_,
                   std::optional<QString> fileName_, std::optional<QByteArray> fileData_,
                   std::optional<QString> timePeriod_)
    : id(QUuid::createUuid())
    , title(std::move(title_))
    , category(category_)
    , content(std::move(content_))
    , fileName(std::move(fileName_))
    , fileData(std::move(fileData_))
    , timePeriod(std::move(timePeriod_))
    , createdAt(Clock::now())
    , updatedAt(createdAt)
{
}

const Entity &Document::staticEntity()
{
    static const Entity entity =
        EntityBuilder<Document>(u"Document"_s)
            .attribute(u"id"_s, &Document::id, RecordDefaults::newId)
            .attribute(u"title"_s, &Document::title, RecordDefaults::emptyText)
            .attribute(u"category"_s, &Document::category, RecordDefaults::text("Other"))
            .attribute(u"content"_s, &Document::content, RecordDefaults::emptyText)
            .attribute(u"fileName"_s, &Document::fileName, RecordDefaults::absent)
            .attribute(u"fileData"_s, &Document::fileData, RecordDefaults::absent)
            .attribute(u"timePeriod"_s, &Document::timePeriod, RecordDefaults::absent)
            .attribute(u"createdAt"_s, &Document::createdAt, RecordDefaults::now)
            .attribute(u"updatedAt"_s, &Document::updatedAt, RecordDefaults::now)
            .attribute(u"userName"_s, &Document::userName, RecordDefaults::absent)
            .attribute(u"userJobTitle"_s, &Document::userJobTitle, RecordDefaults::absent)
            .attribute(u"userCompany"_s, &Document::userCompany, RecordDefaults::absent)
            .attribute(u"userTeam"_s, &Document::userTeam, RecordDefaults::absent)
            .attribute(u"userEmail"_s, &Document::userEmail, RecordDefaults::absent)
            .attribute(u"avatarData"_s, &Document::avatarData, RecordDefaults::absent)
            .build();
    return entity;
}
