#pragma once

#include "core/store/Entity.h"

#include <QColor>
#include <QDateTime>
#include <QString>

// A hashtag seen in some text. The lower-cased name is its identity; which pages carry it is
// found by reading their text, so a tag outlives its last use.
class Tag final : public Record {
public:
    struct Loading {};
    explicit Tag(Loading) {}
    explicit Tag(const QString &typedName);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QString name;
    QString displayName;
    QDateTime createdAt;

    // 36 colours: twelve hues at full opacity, then at 0.8, then at 0.6.
    static const QList<QColor> &palette();
    // A stable colour slot for a tag: 64-bit FNV-1a over the lower-cased UTF-8 name, modulo count.
    static int paletteIndex(const QString &name, int count);
};
