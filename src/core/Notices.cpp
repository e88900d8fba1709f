#include "Notices.h"

NoticeCenter &NoticeCenter::shared()
{
    static NoticeCenter center;
    return center;
}

void NoticeCenter::post(const QString &name, const QVariantMap &info)
{
    emit posted(name, info);
}
