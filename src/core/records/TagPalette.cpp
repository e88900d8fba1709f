#include "Tag.h"

#include <array>

namespace {

QList<QColor> makePalette()
{
    // Blue, purple, orange, green, red, teal, pink, indigo, mint, brown, cyan, yellow.
    static constexpr std::array<QRgb, 12> hues = {
        0x1e7cf2, 0xa255d9, 0xf58a1f, 0x34b25a, 0xe5483f, 0x2aa1b3,
        0xec4c8a, 0x5b5bd6, 0x2ec4b6, 0x9c7a54, 0x3bb4e5, 0xf2c20f,
    };
    QList<QColor> colors;
    colors.reserve(qsizetype(hues.size()) * 3);
    for (const qreal alpha : {1.0, 0.8, 0.6}) {
        for (const QRgb rgb : hues) {
            QColor color(rgb);
            color.setAlphaF(float(alpha));
            colors.append(color);
        }
    }
    return colors;
}

} // namespace

const QList<QColor> &Tag::palette()
{
    static const QList<QColor> colors = makePalette();
    return colors;
}

int Tag::paletteIndex(const QString &name, int count)
{
    if (count <= 0)
        return 0;
    // FNV-1a rather than qHash: the colour must be the same in every run and on every machine.
    quint64 hash = 0xcbf29ce484222325ULL;
    const QByteArray bytes = name.toLower().toUtf8();
    for (const char byte : bytes) {
        hash ^= quint8(byte);
        hash *= 0x100000001b3ULL;
    }
    return int(hash % quint64(count));
}
