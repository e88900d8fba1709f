#pragma once

#include "Entity.h"
#include "Predicate.h"
#include "StoreError.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <algorithm>
#include <memory>

class Database;

// The working set of records over one store. Within a context one row is one object, so every
// caller sees the same shared record; a fetch sees the context's own unsaved inserts, changes
// and deletes; `save` writes all of them in one transaction or none.
class ModelContext : public QObject {
    Q_OBJECT
public:
    ModelContext(Database &database, const Schema &schema, QObject *parent = nullptr);
    ~ModelContext() override;

    void insert(const std::shared_ptr<Record> &record);
    // Deletes the record and, through their cascades, its children.
    void remove(const std::shared_ptr<Record> &record);

    // Raises StoreError when the database can't answer.
    template<class T>
    QList<std::shared_ptr<T>> fetch(const FetchDescriptor<T> &descriptor = {});
    template<class T>
    qint64 fetchCount(const FetchDescriptor<T> &descriptor = {});
    // For the many callers for whom a failed fetch is an empty list.
    template<class T>
    QList<std::shared_ptr<T>> tryFetch(const FetchDescriptor<T> &descriptor = {}) noexcept;
    template<class T>
    std::shared_ptr<T> fetchFirst(FetchDescriptor<T> descriptor = {});

    // Writes every change since the last save in one transaction; on failure raises StoreError,
    // the file stays as it was and the changes stay pending.
    void save();
    // A save whose failure the caller may ignore; says whether it worked.
    bool trySave() noexcept;
    bool hasChanges() const;
    // Unsaved inserts, changes or deletes of this record type, which the file doesn't show yet.
    template<class T>
    bool hasUnsavedChanges() const
    {
        return hasPendingChanges(T::staticEntity());
    }

    // Saves on its own shortly after changes while enabled.
    bool autosaveEnabled() const { return m_autosave; }
    void setAutosaveEnabled(bool enabled);

    // The connection, for queries the database answers better than records do (text search);
    // they see only what was saved.
    Database &database() { return m_db; }

    // Store internals, for the relationship and large-value plumbing.
    std::shared_ptr<Record> recordForKey(const Entity &entity, const QString &key);
    QByteArray loadExternal(const Entity &entity, const Attribute &attribute, const QString &key);

signals:
    void didSave();

private:
    struct Slot {
        std::shared_ptr<Record> object;
        QVariantList snapshot; // column values as last read or written
        bool inserted = false;
        bool deleted = false;
        bool persisted = false; // a row with this key is in the file
    };
    using Slots = QHash<QString, Slot>;

    Slots &slotsOf(const Entity &entity) { return m_registry[&entity]; }
    bool isChanged(const Entity &entity, const Slot &slot) const;
    bool hasPendingChanges(const Entity &entity) const;
    QVariantList currentValues(const Entity &entity, const Record &record) const;
    QString selectColumns(const Entity &entity) const;
    QList<std::shared_ptr<Record>> fetchRows(const Entity &entity, const QString &where,
                                             const QVariantList &bindings, const QString &orderBy,
                                             std::optional<qsizetype> limit);
    qint64 countRows(const Entity &entity, const QString &where, const QVariantList &bindings,
                     std::optional<qsizetype> limit);
    QList<std::shared_ptr<Record>> pendingRecords(const Entity &entity) const;
    std::shared_ptr<Record> materialize(const Entity &entity, const QVariantList &row);
    QList<std::shared_ptr<Record>> children(const CascadeRelationship &relationship,
                                            const QString &parentKey);
    void insertRelatedTargets();
    void prune();
    void scheduleAutosave();
    void autosaveTick();

    template<class T>
    static QString orderClause(const QList<SortDescriptor<T>> &sortBy);

    Database &m_db;
    QHash<const Entity *, Slots> m_registry;
    bool m_autosave = false;
    QTimer m_autosaveTimer;
};

template<class T>
QString ModelContext::orderClause(const QList<SortDescriptor<T>> &sortBy)
{
    QStringList parts;
    for (const SortDescriptor<T> &sort : sortBy)
        parts.append(sort.column +
                     (sort.ascending ? QStringLiteral(" ASC") : QStringLiteral(" DESC")));
    return parts.join(QStringLiteral(", "));
}

template<class T>
QList<std::shared_ptr<T>> ModelContext::fetch(const FetchDescriptor<T> &descriptor)
{
    const Entity &entity = T::staticEntity();
    const bool pending = hasPendingChanges(entity);
    // With nothing unsaved of this type and a condition SQL can fully answer, the database
    // sorts and limits; otherwise memory has the last word.
    const bool pushDown = !pending && descriptor.predicate.exact;
    const QList<std::shared_ptr<Record>> rows =
        fetchRows(entity, descriptor.predicate.sql, descriptor.predicate.bindings,
                  pushDown ? orderClause(descriptor.sortBy) : QString(),
                  pushDown ? descriptor.limit : std::nullopt);

    QList<std::shared_ptr<T>> result;
    result.reserve(rows.size());
    QSet<const Record *> seen;
    auto consider = [&](const std::shared_ptr<Record> &record) {
        auto typed = std::static_pointer_cast<T>(record);
        if (descriptor.predicate.matches(*typed)) {
            result.append(std::move(typed));
            if (pending)
                seen.insert(record.get());
        }
    };
    for (const auto &record : rows)
        consider(record);
    if (pending) {
        for (const auto &record : pendingRecords(entity)) {
            if (!seen.contains(record.get()))
                consider(record);
        }
    }
    if (!pushDown) {
        if (!descriptor.sortBy.isEmpty()) {
            std::stable_sort(result.begin(), result.end(), [&](const auto &a, const auto &b) {
                for (const SortDescriptor<T> &sort : descriptor.sortBy) {
                    const int c = sort.compare(*a, *b);
                    if (c != 0)
                        return sort.ascending ? c < 0 : c > 0;
                }
                return false;
            });
        }
        if (descriptor.limit && result.size() > std::max<qsizetype>(0, *descriptor.limit))
            result.resize(std::max<qsizetype>(0, *descriptor.limit));
    }
    return result;
}

template<class T>
qint64 ModelContext::fetchCount(const FetchDescriptor<T> &descriptor)
{
    const Entity &entity = T::staticEntity();
    if (hasPendingChanges(entity) || !descriptor.predicate.exact)
        return fetch(descriptor).size();
    return countRows(entity, descriptor.predicate.sql, descriptor.predicate.bindings,
                     descriptor.limit);
}

template<class T>
QList<std::shared_ptr<T>> ModelContext::tryFetch(const FetchDescriptor<T> &descriptor) noexcept
{
    try {
        return fetch(descriptor);
    } catch (const StoreError &) {
        return {};
    }
}

template<class T>
std::shared_ptr<T> ModelContext::fetchFirst(FetchDescriptor<T> descriptor)
{
    descriptor.limit = 1;
    const auto found = fetch(descriptor);
    return found.isEmpty() ? nullptr : found.first();
}
