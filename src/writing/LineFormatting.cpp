#include "LineFormatting.h"

#include <array>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr std::array names{
    std::pair{LineFormatting::body, u"body"},
    std::pair{LineFormatting::h1, u"h1"},
    std::pair{LineFormatting::h2, u"h2"},
    std::pair{LineFormatting::h3, u"h3"},
    std::pair{LineFormatting::bullet, u"bullet"},
    std::pair{LineFormatting::checklist, u"checklist"},
    std::pair{LineFormatting::quote, u"quote"},
    std::pair{LineFormatting::divider, u"divider"},
    std::pair{LineFormatting::numbered, u"numbered"},
    std::pair{LineFormatting::code, u"code"},
};

} // namespace

QString rawValue(LineFormatting formatting)
{
    for (const auto &[value, name] : names) {
        if (value == formatting)
            return QString::fromUtf16(name);
    }
    return u"body"_s;
}

std::optional<LineFormatting> lineFormattingFromRaw(const QString &raw)
{
    for (const auto &[value, name] : names) {
        if (raw == QStringView(name))
            return value;
    }
    return std::nullopt;
}

bool isListFormatting(LineFormatting formatting)
{
    return formatting == LineFormatting::bullet || formatting == LineFormatting::checklist ||
           formatting == LineFormatting::numbered;
}
