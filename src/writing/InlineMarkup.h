#pragma once

#include <QFlags>
#include <QList>
#include <QSize>
#include <QString>

#include <optional>

// The spans inside one line of stored text: "***both***", "**bold**", "*italic*",
// "~~struck~~", "`code`", "==highlight==" or "=={green}highlight==", "[text](url)" and
// "<u>underline</u>", tried in that order at each position, each closing at the nearest
// closer. Nothing is escaped: what doesn't form a span is text.
namespace InlineMarkup {

enum class Style : quint8 {
    bold = 1,
    italic = 2,
    underline = 4,
    strikethrough = 8,
    code = 16,
    highlight = 32,
};
Q_DECLARE_FLAGS(Styles, Style)

// "{{img:ID}}" or, once resized, "{{img:ID|w=W,h=H}}".
struct ImageToken {
    QString id;
    std::optional<QSize> size;

    QString text() const;
    // The part between "{{img:" and "}}".
    static std::optional<ImageToken> fromPayload(QStringView payload);
    bool operator==(const ImageToken &) const = default;
};

// A run of text with one set of marks, or one image.
struct Span {
    QString text;
    Styles styles;
    QString link;      // the user's own link, empty for none
    QString highlight; // a palette name when styles has highlight
    std::optional<ImageToken> image;

    bool sameMarks(const Span &other) const;
    bool operator==(const Span &) const = default;
};

// One line's body (no line marker). Linear in the length of the text: it never backtracks
// over the rest of the line for each unclosed mark.
QList<Span> parse(QStringView text);
// As parse, but image tokens first split the line; text between them is parsed on its own.
QList<Span> parseWithImages(QStringView text);

// Neighbouring text runs with the same marks become one, as the editor would show them.
QList<Span> merged(const QList<Span> &spans);
QString serialize(const QList<Span> &spans);

// Where image tokens sit in a text, for the code that only needs their ids.
struct TokenMatch {
    qsizetype start = 0;
    qsizetype length = 0;
    ImageToken token;
};
QList<TokenMatch> findImageTokens(QStringView text);

} // namespace InlineMarkup

Q_DECLARE_OPERATORS_FOR_FLAGS(InlineMarkup::Styles)
