#include "EditorLink.h"

#include "core/Notices.h"
#include "core/PreferenceKeys.h"

using namespace Qt::StringLiterals;

namespace EditorLink {

bool isInternal(const QUrl &url)
{
    return url.scheme().compare(QLatin1StringView(scheme), Qt::CaseInsensitive) == 0;
}

bool isInternal(QStringView url)
{
    return url.startsWith(QLatin1StringView(scheme), Qt::CaseInsensitive) &&
           url.mid(qstrlen(scheme)).startsWith(u':');
}

std::optional<QUrl> url(const QVariant &attribute)
{
    QUrl result;
    if (attribute.metaType() == QMetaType::fromType<QUrl>())
        result = attribute.toUrl();
    else if (attribute.canConvert<QString>())
        result = QUrl(attribute.toString());
    if (!result.isValid() || result.isEmpty())
        return std::nullopt;
    return result;
}

QUrl personLink(const QString &personId)
{
    return QUrl(u"tovren://person/"_s + personId);
}

QUrl tagLink(const QString &tagName)
{
    QUrl link;
    link.setScheme(u"tovren"_s);
    link.setHost(u"tag"_s);
    link.setPath(u'/' + tagName);
    return link;
}

Followed follow(const QUrl &url, Preferences &preferences)
{
    if (!isInternal(url))
        return url.isValid() && !url.isEmpty() ? Followed::external : Followed::ignored;
    const QString target = url.path().mid(1);
    if (url.host() == u"person" && !target.isEmpty()) {
        preferences.set(Prefs::peopleSelectPersonId, target);
        NoticeCenter::shared().post(Notices::openTab, {{u"item"_s, u"meetings"_s}});
        return Followed::person;
    }
    if (url.host() == u"tag" && !target.isEmpty()) {
        NoticeCenter::shared().post(searchNotice, {{u"query"_s, QString(u'#' + target)}});
        return Followed::tag;
    }
    return Followed::ignored;
}

} // namespace EditorLink
