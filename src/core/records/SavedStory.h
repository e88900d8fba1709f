#pragma once

#include "core/store/Entity.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

// A STAR story the user kept.
class SavedStory final : public Record {
public:
    struct Loading {};
    explicit SavedStory(Loading) {}
    SavedStory(QString title, QString competency, QString content);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    QString title;
    QString competency;
    QString content;
    QDateTime createdAt;
    QDateTime updatedAt;
};
