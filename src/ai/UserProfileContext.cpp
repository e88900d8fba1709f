#include "UserProfileContext.h"

#include "core/records/Document.h"
#include "core/store/ModelContext.h"

using namespace Qt::StringLiterals;

namespace UserProfileContext {

QString promptContext(ModelContext &context)
{
    // Oldest first, so that "the first About Me document" is the same one on every call.
    const auto profiles =
        context.tryFetch<Document>({field(&Document::category) == DocumentCategory::aboutMe,
                                    {field(&Document::createdAt).ascending()},
                                    1});
    if (profiles.isEmpty())
        return QString();
    const Document &profile = *profiles.first();
    const auto trimmed = [](const std::optional<QString> &value) {
        return value.value_or(QString()).trimmed();
    };
    const QString name = trimmed(profile.userName);
    const QString title = trimmed(profile.userJobTitle);
    const QString company = trimmed(profile.userCompany);
    const QString team = trimmed(profile.userTeam);
    const QString content = profile.content.trimmed();

    QStringList lines;
    if (!name.isEmpty())
        lines.append(u"- Name: "_s + name);
    if (!title.isEmpty() && !company.isEmpty())
        lines.append(u"- Role: "_s + title + u" at "_s + company);
    else if (!title.isEmpty())
        lines.append(u"- Role: "_s + title);
    else if (!company.isEmpty())
        lines.append(u"- Company: "_s + company);
    if (!team.isEmpty())
        lines.append(u"- Team: "_s + team);
    if (lines.isEmpty() && content.isEmpty())
        return QString();

    QString text = u"The user you're writing for:\n"_s + lines.join(u'\n');
    if (!content.isEmpty()) {
        if (!lines.isEmpty())
            text += u"\n\n"_s;
        text += u"Their own description:\n"_s + content;
    }
    return text;
}

} // namespace UserProfileContext
