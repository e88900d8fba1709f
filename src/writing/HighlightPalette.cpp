#include "HighlightPalette.h"

using namespace Qt::StringLiterals;

namespace HighlightPalette {

namespace {

// Light enough to read dark text on, in the order of entries().
const QList<QColor> &colors()
{
    static const QList<QColor> list{
        QColor(0xff, 0xe8, 0x6b), QColor(0xb5, 0xec, 0xa3), QColor(0xa8, 0xd4, 0xff),
        QColor(0xff, 0xc2, 0xdc), QColor(0xff, 0xcf, 0x99), QColor(0xd9, 0xc2, 0xff),
    };
    return list;
}

} // namespace

const QStringList &entries()
{
    static const QStringList list{u"yellow"_s, u"green"_s,  u"blue"_s,
                                  u"pink"_s,   u"orange"_s, u"purple"_s};
    return list;
}

QColor color(const QString &name)
{
    const qsizetype index = entries().indexOf(name);
    return colors().at(index < 0 ? 0 : index);
}

QString name(const QColor &color)
{
    const QRgb wanted = color.rgb();
    for (qsizetype i = 0; i < colors().size(); ++i) {
        if (colors().at(i).rgb() == wanted)
            return entries().at(i);
    }
    return defaultName;
}

QString canonicalName(const QString &name)
{
    return entries().contains(name) ? name : defaultName;
}

} // namespace HighlightPalette
