#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

class Document;
class ModelContext;

// The library's documents that fit in a prompt, most relevant first, each fenced so that its
// text can never close its own block.
namespace KnowledgeContext {

inline constexpr int budget = 8000;
inline constexpr int perDocumentLimit = 2000;

// Empty when no document has content; a failed fetch reads as no documents.
QString promptContext(ModelContext &context, const QDateTime &referenceDate);

struct HalfYear {
    int year = 0;
    int half = 1; // 1 for January to June, 2 for July to December
    bool operator==(const HalfYear &) const = default;
};
// "End of H1 2024", "End of 2024", "2024 Q3", "2023 H1"…; nothing for anything else.
std::optional<HalfYear> parseTimePeriod(const QString &text);
double relevanceScore(const Document &document, const QDateTime &referenceDate);
QString formatHeader(const Document &document);
QString truncateAtParagraph(const QString &text, int limit);
QString fence(const QString &text);

} // namespace KnowledgeContext
