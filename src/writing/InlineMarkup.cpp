#include "InlineMarkup.h"

#include "EditorLink.h"
#include "HighlightPalette.h"

#include <algorithm>
#include <array>
#include <optional>

using namespace Qt::StringLiterals;

namespace InlineMarkup {

namespace {

// Spans nest only through different marks, so real text never gets near this; it bounds the
// recursion for text built to go deep.
constexpr int maxDepth = 24;

enum Pattern { star3, star2, star1, tilde2, backtick, equals2, closeBracket, closeParen, closeU };
constexpr std::array<QStringView, 9> patterns{u"***", u"**", u"*", u"~~",  u"`",
                                              u"==",  u"]",  u")", u"</u>"};

// Every start of one closer in the line, found once, so that looking for "the nearest closer
// after here" costs a binary search instead of a scan to the end of the line.
class Occurrences {
public:
    Occurrences(QStringView text, QStringView pattern)
    {
        for (qsizetype i = text.indexOf(pattern); i >= 0; i = text.indexOf(pattern, i + 1))
            m_positions.append(i);
    }
    qsizetype next(qsizetype from) const
    {
        const auto it = std::lower_bound(m_positions.cbegin(), m_positions.cend(), from);
        return it == m_positions.cend() ? -1 : *it;
    }

private:
    QList<qsizetype> m_positions;
};

bool isLowerAscii(QChar c)
{
    return c >= u'a' && c <= u'z';
}

class Parser {
public:
    explicit Parser(QStringView text)
        : m_text(text)
    {
    }

    QList<Span> run()
    {
        QList<Span> out;
        parseRange(0, m_text.size(), Span{}, 0, out);
        return out;
    }

private:
    struct Match {
        qsizetype innerBegin = 0;
        qsizetype innerEnd = 0;
        qsizetype end = 0;
        Styles add;
        QString link;
        QString highlight;
        bool literal = false;

        static Match of(qsizetype innerBegin, qsizetype innerEnd, qsizetype end, Styles add)
        {
            Match match;
            match.innerBegin = innerBegin;
            match.innerEnd = innerEnd;
            match.end = end;
            match.add = add;
            return match;
        }
    };

    // The nearest closer starting at or after `from` that ends by `end`, or -1.
    qsizetype closer(Pattern pattern, qsizetype from, qsizetype end)
    {
        auto &found = m_occurrences[pattern];
        if (!found)
            found.emplace(m_text, patterns[pattern]);
        const qsizetype at = found->next(from);
        return at >= 0 && at + patterns[pattern].size() <= end ? at : -1;
    }

    bool opensWith(qsizetype i, qsizetype end, QStringView mark) const
    {
        return i + mark.size() <= end && m_text.mid(i, mark.size()) == mark;
    }

    std::optional<Match> matchAt(qsizetype begin, qsizetype i, qsizetype end)
    {
        const QChar c = m_text[i];
        if (c == u'*') {
            if (opensWith(i, end, u"***")) {
                if (const qsizetype j = closer(star3, i + 4, end); j >= 0)
                    return Match::of(i + 3, j, j + 3, Style::bold | Style::italic);
            }
            if (opensWith(i, end, u"**")) {
                if (const qsizetype j = closer(star2, i + 3, end); j >= 0)
                    return Match::of(i + 2, j, j + 2, Style::bold);
            }
            // A lone star that touches another never opens italic, so "**bold*" stays as
            // typed instead of becoming an italic "*bold".
            const bool touchesStar =
                (i + 1 < end && m_text[i + 1] == u'*') || (i > begin && m_text[i - 1] == u'*');
            if (touchesStar)
                return std::nullopt;
            if (const qsizetype j = closer(star1, i + 2, end); j >= 0)
                return Match::of(i + 1, j, j + 1, Style::italic);
            return std::nullopt;
        }
        if (c == u'~') {
            if (opensWith(i, end, u"~~")) {
                if (const qsizetype j = closer(tilde2, i + 3, end); j >= 0)
                    return Match::of(i + 2, j, j + 2, Style::strikethrough);
            }
            return std::nullopt;
        }
        if (c == u'`') {
            // Only a lone backtick opens or closes a span: one inside a run would be written
            // back as part of a longer run and read differently.
            const auto lone = [this, begin, end](qsizetype at) {
                return (at <= begin || m_text[at - 1] != u'`') &&
                       (at + 1 >= end || m_text[at + 1] != u'`');
            };
            if (!lone(i))
                return std::nullopt;
            qsizetype j = closer(backtick, i + 2, end);
            while (j >= 0 && !lone(j))
                j = closer(backtick, j + 1, end);
            if (j >= 0) {
                Match match = Match::of(i + 1, j, j + 1, Style::code);
                match.literal = true;
                return match;
            }
            return std::nullopt;
        }
        if (c == u'=') {
            if (!opensWith(i, end, u"=="))
                return std::nullopt;
            if (i + 2 < end && m_text[i + 2] == u'{') {
                qsizetype k = i + 3;
                while (k < end && isLowerAscii(m_text[k]))
                    ++k;
                if (k > i + 3 && k < end && m_text[k] == u'}') {
                    if (const qsizetype j = closer(equals2, k + 2, end); j >= 0) {
                        const QString name = m_text.mid(i + 3, k - i - 3).toString();
                        Match match = Match::of(k + 1, j, j + 2, Style::highlight);
                        match.highlight = HighlightPalette::canonicalName(name);
                        return match;
                    }
                }
            }
            if (const qsizetype j = closer(equals2, i + 3, end); j >= 0) {
                Match match = Match::of(i + 2, j, j + 2, Style::highlight);
                match.highlight = HighlightPalette::defaultName;
                return match;
            }
            return std::nullopt;
        }
        if (c == u'[') {
            const qsizetype j = closer(closeBracket, i + 1, end);
            if (j < i + 2 || j + 1 >= end || m_text[j + 1] != u'(')
                return std::nullopt;
            const qsizetype k = closer(closeParen, j + 2, end);
            if (k < j + 3)
                return std::nullopt;
            Match match = Match::of(i + 1, j, k + 1, {});
            match.link = m_text.mid(j + 2, k - j - 2).toString();
            return match;
        }
        if (c == u'<') {
            if (opensWith(i, end, u"<u>")) {
                if (const qsizetype j = closer(closeU, i + 4, end); j >= 0)
                    return Match::of(i + 3, j, j + 4, Style::underline);
            }
        }
        return std::nullopt;
    }

    void appendText(qsizetype begin, qsizetype end, const Span &marks, QList<Span> &out) const
    {
        if (begin >= end)
            return;
        Span span = marks;
        span.text = m_text.mid(begin, end - begin).toString();
        out.append(std::move(span));
    }

    void parseRange(qsizetype begin, qsizetype end, const Span &marks, int depth, QList<Span> &out)
    {
        if (depth > maxDepth) {
            appendText(begin, end, marks, out);
            return;
        }
        qsizetype plainStart = begin;
        qsizetype i = begin;
        while (i < end) {
            const QChar c = m_text[i];
            const bool opener =
                c == u'*' || c == u'~' || c == u'`' || c == u'=' || c == u'[' || c == u'<';
            std::optional<Match> match = opener ? matchAt(begin, i, end) : std::nullopt;
            if (!match) {
                ++i;
                continue;
            }
            appendText(plainStart, i, marks, out);
            Span inner = marks;
            inner.styles |= match->add;
            if (!match->link.isEmpty())
                inner.link = match->link;
            if (!match->highlight.isEmpty())
                inner.highlight = match->highlight;
            if (match->literal)
                appendText(match->innerBegin, match->innerEnd, inner, out);
            else
                parseRange(match->innerBegin, match->innerEnd, inner, depth + 1, out);
            i = match->end;
            plainStart = i;
        }
        appendText(plainStart, end, marks, out);
    }

    QStringView m_text;
    std::array<std::optional<Occurrences>, patterns.size()> m_occurrences;
};

bool startsWithColourWord(QStringView text)
{
    if (!text.startsWith(u'{'))
        return false;
    qsizetype k = 1;
    while (k < text.size() && isLowerAscii(text[k]))
        ++k;
    return k > 1 && k < text.size() && text[k] == u'}';
}

QString wrap(const Span &span)
{
    qsizetype coreEnd = span.text.size();
    while (coreEnd > 0 && span.text[coreEnd - 1].isSpace())
        --coreEnd;
    // Marks around trailing blanks would read back differently, and marks around nothing
    // would read back as text.
    if (coreEnd == 0 || !span.styles)
        return span.text;

    QString r = span.text.left(coreEnd);
    if (span.styles & Style::code)
        r = u'`' + r + u'`';
    const bool bold = span.styles.testFlag(Style::bold);
    const bool italic = span.styles.testFlag(Style::italic);
    if (bold && italic)
        r = u"***"_s + r + u"***"_s;
    else if (bold)
        r = u"**"_s + r + u"**"_s;
    else if (italic)
        r = u'*' + r + u'*';
    if (span.styles & Style::strikethrough)
        r = u"~~"_s + r + u"~~"_s;
    if (span.styles & Style::underline)
        r = u"<u>"_s + r + u"</u>"_s;
    if (span.styles & Style::highlight) {
        const QString name = HighlightPalette::canonicalName(span.highlight);
        // Yellow goes unnamed, unless the text itself starts like a colour word, which would
        // otherwise be read as one and lost.
        if (name != HighlightPalette::defaultName || startsWithColourWord(r))
            r = u"=={"_s + name + u'}' + r + u"=="_s;
        else
            r = u"=="_s + r + u"=="_s;
    }
    return r + QStringView(span.text).mid(coreEnd);
}

std::optional<int> pointCount(QStringView digits)
{
    if (digits.isEmpty() || digits.size() > 6 || (digits.size() > 1 && digits.front() == u'0'))
        return std::nullopt;
    for (QChar c : digits) {
        if (c < u'0' || c > u'9')
            return std::nullopt;
    }
    return digits.toInt();
}

} // namespace

QString ImageToken::text() const
{
    QString result = u"{{img:"_s + id;
    if (size)
        result +=
            u"|w="_s + QString::number(size->width()) + u",h="_s + QString::number(size->height());
    return result + u"}}"_s;
}

std::optional<ImageToken> ImageToken::fromPayload(QStringView payload)
{
    if (payload.isEmpty())
        return std::nullopt;
    // A size is only taken in the form the editor writes, so any other payload is kept whole
    // and written back exactly.
    const qsizetype bar = payload.lastIndexOf(u"|w=");
    if (bar > 0) {
        const QStringView rest = payload.mid(bar + 3);
        const qsizetype comma = rest.indexOf(u",h=");
        if (comma >= 0) {
            const auto width = pointCount(rest.left(comma));
            const auto height = pointCount(rest.mid(comma + 3));
            if (width && height)
                return ImageToken{payload.left(bar).toString(), QSize(*width, *height)};
        }
    }
    return ImageToken{payload.toString(), std::nullopt};
}

bool Span::sameMarks(const Span &other) const
{
    return !image && !other.image && styles == other.styles && link == other.link &&
           (!(styles & Style::highlight) || highlight == other.highlight);
}

QList<Span> parse(QStringView text)
{
    return Parser(text).run();
}

QList<TokenMatch> findImageTokens(QStringView text)
{
    QList<TokenMatch> found;
    qsizetype from = 0;
    qsizetype brace = -1; // the first '}' after the current start, kept between starts
    while (true) {
        const qsizetype start = text.indexOf(u"{{img:", from);
        if (start < 0)
            break;
        if (brace < start + 6) {
            brace = text.indexOf(u'}', start + 6);
            if (brace < 0)
                break;
        }
        if (brace > start + 6 && brace + 1 < text.size() && text[brace + 1] == u'}') {
            if (auto token = ImageToken::fromPayload(text.mid(start + 6, brace - start - 6))) {
                found.append({start, brace + 2 - start, std::move(*token)});
                from = brace + 2;
                continue;
            }
        }
        from = start + 1;
    }
    return found;
}

QList<Span> parseWithImages(QStringView text)
{
    QList<Span> spans;
    qsizetype at = 0;
    for (const TokenMatch &match : findImageTokens(text)) {
        spans += parse(text.mid(at, match.start - at));
        spans.append(Span{{}, {}, {}, {}, match.token});
        at = match.start + match.length;
    }
    spans += parse(text.mid(at));
    return spans;
}

QList<Span> merged(const QList<Span> &spans)
{
    QList<Span> result;
    result.reserve(spans.size());
    for (const Span &span : spans) {
        if (!span.image && span.text.isEmpty())
            continue;
        if (!result.isEmpty() && result.last().sameMarks(span))
            result.last().text += span.text;
        else
            result.append(span);
    }
    return result;
}

QString serialize(const QList<Span> &spans)
{
    const QList<Span> runs = merged(spans);
    QString out;
    for (qsizetype i = 0; i < runs.size();) {
        const Span &span = runs.at(i);
        if (span.image) {
            out += span.image->text();
            ++i;
            continue;
        }
        if (span.link.isEmpty() || EditorLink::isInternal(QStringView(span.link))) {
            out += wrap(span);
            ++i;
            continue;
        }
        // Neighbouring runs of one link are written as one link around their marks, so the
        // URL is written once and reads back as the same link.
        QString inner;
        qsizetype end = i;
        while (end < runs.size() && !runs.at(end).image && runs.at(end).link == span.link) {
            Span unlinked = runs.at(end);
            unlinked.link.clear();
            inner += wrap(unlinked);
            ++end;
        }
        qsizetype coreEnd = inner.size();
        while (coreEnd > 0 && inner[coreEnd - 1].isSpace())
            --coreEnd;
        if (coreEnd == 0)
            out += inner;
        else
            out += u'[' + QStringView(inner).left(coreEnd) + u"]("_s + span.link + u')' +
                   QStringView(inner).mid(coreEnd);
        i = end;
    }
    return out;
}

} // namespace InlineMarkup
