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

    // `textStart` is where the plain text before `i` begins: a mark character before it closed
    // a span, so it doesn't count as touching the one at `i`.
    std::optional<Match> matchAt(qsizetype textStart, qsizetype i, qsizetype end)
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
                (i + 1 < end && m_text[i + 1] == u'*') || (i > textStart && m_text[i - 1] == u'*');
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
            const auto lone = [this, textStart, end](qsizetype at) {
                return (at <= textStart || m_text[at - 1] != u'`') &&
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

    bool onlyBlanks(qsizetype begin, qsizetype end) const
    {
        for (qsizetype k = begin; k < end; ++k) {
            if (!m_text[k].isSpace())
                return false;
        }
        return true;
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
            std::optional<Match> match = opener ? matchAt(plainStart, i, end) : std::nullopt;
            // Marks around nothing but blanks are never written, so such a pair is text.
            if (!match || onlyBlanks(match->innerBegin, match->innerEnd)) {
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

// One mark as the writer nests it. Bold and italic are one layer with three forms, since
// "**" inside "*" (or the reverse) can't be told apart from "***" by the reader.
struct Layer {
    enum Kind : quint8 { highlight, underline, strikethrough, stars, code };
    Kind kind;
    QString colour;    // the palette name, for a highlight
    int starCount = 0; // 1 italic, 2 bold, 3 both

    bool operator==(const Layer &) const = default;
};

QList<Layer> layersOf(const Span &span)
{
    QList<Layer> layers;
    if (span.styles & Style::highlight)
        layers.append(Layer{Layer::highlight, HighlightPalette::canonicalName(span.highlight)});
    if (span.styles & Style::underline)
        layers.append(Layer{Layer::underline, {}});
    if (span.styles & Style::strikethrough)
        layers.append(Layer{Layer::strikethrough, {}});
    const int stars = (span.styles & Style::bold ? 2 : 0) + (span.styles & Style::italic ? 1 : 0);
    if (stars)
        layers.append(Layer{Layer::stars, {}, stars});
    if (span.styles & Style::code)
        layers.append(Layer{Layer::code, {}});
    return layers;
}

QString marked(const Layer &layer, const QString &inner)
{
    switch (layer.kind) {
    case Layer::highlight:
        // Yellow goes unnamed, unless the text itself starts like a colour word, which would
        // otherwise be read as one and lost.
        if (layer.colour != HighlightPalette::defaultName || startsWithColourWord(inner))
            return u"=={"_s + layer.colour + u'}' + inner + u"=="_s;
        return u"=="_s + inner + u"=="_s;
    case Layer::underline:
        return u"<u>"_s + inner + u"</u>"_s;
    case Layer::strikethrough:
        return u"~~"_s + inner + u"~~"_s;
    case Layer::stars: {
        const QString stars(layer.starCount, u'*');
        return stars + inner + stars;
    }
    case Layer::code:
        return u'`' + inner + u'`';
    }
    return inner;
}

// Blanks at the end of a mark are written after its closer (a bold word followed by the space
// typed after it is stored as "**word** "), and a mark around nothing but blanks is left off.
template<typename Mark>
QString enclosed(const Mark &mark, const QString &inner)
{
    qsizetype coreEnd = inner.size();
    while (coreEnd > 0 && inner[coreEnd - 1].isSpace())
        --coreEnd;
    if (coreEnd == 0)
        return inner;
    return mark(inner.left(coreEnd)) + QStringView(inner).mid(coreEnd);
}

// Writes text runs (no images, no links) with their marks nested: a mark that goes on over
// several runs is opened once around all of them, so "*a `b`*" is written as such and not as
// "*a**`b`*", which would read back as something else. Where marks open together, the one that
// lasts longer goes outside; code always goes innermost, as nothing inside it is read.
QString nested(const QList<Span> &runs)
{
    struct Open {
        Layer layer;
        QString text;
    };
    QList<Open> stack{{Layer{Layer::code, {}}, {}}}; // the bottom entry is the line itself
    const auto closeDownTo = [&stack](qsizetype size) {
        while (stack.size() > size) {
            Open top = stack.takeLast();
            stack.last().text +=
                enclosed([&top](const QString &core) -> QString { return marked(top.layer, core); },
                         top.text);
        }
    };
    QList<QList<Layer>> layers;
    layers.reserve(runs.size());
    for (const Span &run : runs)
        layers.append(layersOf(run));
    const auto extent = [&layers](qsizetype from, const Layer &layer) {
        qsizetype to = from;
        while (to < layers.size() && layers.at(to).contains(layer))
            ++to;
        return to - from;
    };

    for (qsizetype i = 0; i < runs.size(); ++i) {
        const QList<Layer> &want = layers.at(i);
        qsizetype keep = 1;
        while (keep < stack.size() && want.contains(stack.at(keep).layer))
            ++keep;
        closeDownTo(keep);
        QList<Layer> toOpen;
        for (const Layer &layer : want) {
            const bool open = std::any_of(stack.cbegin() + 1, stack.cend(),
                                          [&layer](const Open &o) { return o.layer == layer; });
            if (!open)
                toOpen.append(layer);
        }
        if (!toOpen.isEmpty() && stack.size() > 1 && stack.last().layer.kind == Layer::code) {
            closeDownTo(stack.size() - 1);
            toOpen.append(Layer{Layer::code, {}});
        }
        std::stable_sort(toOpen.begin(), toOpen.end(),
                         [&extent, i](const Layer &a, const Layer &b) {
                             if ((a.kind == Layer::code) != (b.kind == Layer::code))
                                 return b.kind == Layer::code;
                             return extent(i, a) > extent(i, b);
                         });
        for (const Layer &layer : std::as_const(toOpen))
            stack.append({layer, {}});
        stack.last().text += runs.at(i).text;
    }
    closeDownTo(1);
    return stack.first().text;
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
        if (runs.at(i).image) {
            out += runs.at(i).image->text();
            ++i;
            continue;
        }
        // A stretch of text runs, cut where an image sits or the user's own link changes.
        const QString link =
            EditorLink::isInternal(QStringView(runs.at(i).link)) ? QString() : runs.at(i).link;
        QList<Span> stretch;
        for (; i < runs.size() && !runs.at(i).image; ++i) {
            const Span &run = runs.at(i);
            const bool ownLink =
                !run.link.isEmpty() && !EditorLink::isInternal(QStringView(run.link));
            if ((ownLink ? run.link : QString()) != link)
                break;
            stretch.append(run);
        }
        if (link.isEmpty()) {
            out += nested(stretch);
            continue;
        }
        // One link around its runs' marks, so the URL is written once and reads back as the
        // same link.
        out += enclosed(
            [&link](const QString &core) -> QString { return u'[' + core + u"]("_s + link + u')'; },
            nested(stretch));
    }
    return out;
}

} // namespace InlineMarkup
