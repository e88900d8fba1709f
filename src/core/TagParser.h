#pragma once

#include "core/records/Tag.h"

#include <QList>
#include <QStringList>

#include <memory>

class ModelContext;

// Hashtags in page text and the registry of tags they feed.
namespace TagParser {

// Every "#name" in order of appearance, duplicates and case kept. A name starts with an ASCII
// letter and goes on over word characters of any script.
QStringList extractTagNames(const QString &text);

// The Tag record for each distinct lower-cased name, inserting the ones the store lacks. A tag
// that has no display name yet takes the spelling given here. Does not save.
QList<std::shared_ptr<Tag>> resolveTags(const QStringList &names, ModelContext &context);

} // namespace TagParser
