#pragma once

#include "Enumerations.h"
#include "core/store/Entity.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

#include <optional>

// A library item; the first document of category "About Me" is the user's own profile.
class Document final : public Record {
public:
    struct Loading {};
    explicit Document(Loading) {}
    Document(QString title, DocumentCategory category, QString content,
             std::optional<QString> fileName = std::nullopt,
             std::optional<QByteArray> fileData = std::nullopt,
             std::optional<QString> timePeriod = std::nullopt);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    QString title;
    DocumentCategory category = DocumentCategory::other;
    QString content; // what reaches prompts
    std::optional<QString> fileName;
    ExternalBytes fileData; // the imported file, read when asked for
    std::optional<QString> timePeriod;
    QDateTime createdAt;
    QDateTime updatedAt;
    // Profile fields, meaningful on the About Me document only.
    std::optional<QString> userName;
    std::optional<QString> userJobTitle;
    std::optional<QString> userCompany;
    std::optional<QString> userTeam;
    std::optional<QString> userEmail;
    ExternalBytes avatarData;

    bool isAboutMe() const { return category == DocumentCategory::aboutMe; }
};
