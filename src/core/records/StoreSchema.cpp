#include "StoreSchema.h"

#include "AIInteraction.h"
#include "ActionItem.h"
#include "DailyEntry.h"
#include "Document.h"
#include "EntryImage.h"
#include "Goal.h"
#include "GoalMilestone.h"
#include "InboxItem.h"
#include "Meeting.h"
#include "PerformanceReview.h"
#include "Person.h"
#include "SavedStory.h"
#include "Tag.h"
#include "TaskItem.h"
#include "WeeklyBrief.h"
#include "core/JournalSearch.h"

using namespace Qt::StringLiterals;

namespace StoreSchema {

const Schema &current()
{
    static const Schema schema{
        u"1.0.0"_s,
        {&DailyEntry::staticEntity(), &Person::staticEntity(), &Meeting::staticEntity(),
         &ActionItem::staticEntity(), &Goal::staticEntity(), &GoalMilestone::staticEntity(),
         &Document::staticEntity(), &Tag::staticEntity(), &TaskItem::staticEntity(),
         &EntryImage::staticEntity(), &WeeklyBrief::staticEntity(), &AIInteraction::staticEntity(),
         &InboxItem::staticEntity(), &SavedStory::staticEntity(),
         &PerformanceReview::staticEntity()},
        JournalSearch::prepareIndex,
    };
    return schema;
}

} // namespace StoreSchema
