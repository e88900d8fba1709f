#include "ModelContext.h"

#include "Database.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int autosaveIntervalMs = 1000;

QString tableName(const Entity &entity)
{
    return quotedIdentifier(entity.name);
}

} // namespace

std::shared_ptr<Record> resolveRelation(ModelContext &context, const Entity &target,
                                        const QString &key)
{
    return context.recordForKey(target, key);
}

ModelContext::ModelContext(Database &database, const Schema &schema, QObject *parent)
    : QObject(parent)
    , m_db(database)
{
    // Every table exists up front: lookups that resolve relations never grow the outer map
    // while a caller holds a reference into it.
    for (const Entity *entity : schema.entities)
        m_registry[entity];
    m_autosaveTimer.setInterval(autosaveIntervalMs);
    connect(&m_autosaveTimer, &QTimer::timeout, this, &ModelContext::autosaveTick);
}

ModelContext::~ModelContext()
{
    for (Slots &table : m_registry) {
        for (Slot &slot : table)
            slot.object->m_context = nullptr;
    }
}

void ModelContext::setAutosaveEnabled(bool enabled)
{
    m_autosave = enabled;
    if (!enabled)
        m_autosaveTimer.stop();
    else
        scheduleAutosave();
}

void ModelContext::scheduleAutosave()
{
    if (m_autosave && !m_autosaveTimer.isActive())
        m_autosaveTimer.start();
}

void ModelContext::autosaveTick()
{
    if (hasChanges())
        trySave();
    else
        prune();
    bool anyHeld = false;
    for (const Slots &table : std::as_const(m_registry))
        anyHeld = anyHeld || !table.isEmpty();
    // Nobody holds a record the context knows, so nothing can change until the next fetch.
    if (!anyHeld)
        m_autosaveTimer.stop();
}

QVariantList ModelContext::currentValues(const Entity &entity, const Record &record) const
{
    QVariantList values;
    values.reserve(entity.attributes.size());
    for (const Attribute &attribute : entity.attributes)
        values.append(attribute.read(record));
    return values;
}

bool ModelContext::isChanged(const Entity &entity, const Slot &slot) const
{
    const auto &attributes = entity.attributes;
    for (qsizetype i = 0; i < attributes.size(); ++i) {
        const Attribute &attribute = attributes.at(i);
        if (attribute.kind == Attribute::Kind::External) {
            if (attribute.external(*slot.object).m_changed)
                return true;
        } else if (attribute.read(*slot.object) != slot.snapshot.at(i)) {
            return true;
        }
    }
    return false;
}

bool ModelContext::hasPendingChanges(const Entity &entity) const
{
    const auto table = m_registry.constFind(&entity);
    if (table == m_registry.cend())
        return false;
    for (const Slot &slot : *table) {
        if (slot.inserted || slot.deleted || isChanged(entity, slot))
            return true;
    }
    return false;
}

bool ModelContext::hasChanges() const
{
    for (auto it = m_registry.cbegin(); it != m_registry.cend(); ++it) {
        if (hasPendingChanges(*it.key()))
            return true;
    }
    return false;
}

void ModelContext::insert(const std::shared_ptr<Record> &record)
{
    if (!record)
        return;
    const Entity &entity = record->entity();
    const QString key = entity.keyOf(*record);
    Slots &table = slotsOf(entity);
    auto existing = table.find(key);
    if (existing != table.end()) {
        if (existing->object == record) {
            existing->deleted = false;
            return;
        }
        // Another object with the same key: the new one takes over the row when saved.
        existing->object->m_context = nullptr;
        existing->object = record;
        existing->inserted = true;
        existing->deleted = false;
    } else {
        Slot slot;
        slot.object = record;
        slot.inserted = true;
        table.insert(key, std::move(slot));
    }
    record->m_context = this;
    scheduleAutosave();
}

void ModelContext::remove(const std::shared_ptr<Record> &record)
{
    if (!record || record->m_context != this)
        return;
    const Entity &entity = record->entity();
    Slots &table = slotsOf(entity);
    const QString key = entity.keyOf(*record);
    auto slot = table.find(key);
    if (slot == table.end() || slot->object != record || slot->deleted)
        return;
    // Children are gathered while the record still resolves: one read from the file only now
    // would otherwise point at nothing and be left behind. Marked before they go, so that a
    // cascade leading back here stops.
    QList<std::shared_ptr<Record>> doomed;
    for (const CascadeRelationship &relationship : entity.cascades)
        doomed += children(relationship, key);
    slotsOf(entity).find(key)->deleted = true; // the gathering may have grown the table
    for (const auto &child : std::as_const(doomed))
        remove(child);
    Slots &after = slotsOf(entity); // the cascade may have grown the tables
    if (auto it = after.find(key); it != after.end() && !it->persisted) {
        it->object->m_context = nullptr;
        after.erase(it);
    }
    scheduleAutosave();
}

QList<std::shared_ptr<Record>> ModelContext::children(const CascadeRelationship &relationship,
                                                      const QString &parentKey)
{
    const Entity &child = relationship.child();
    const int column = child.indexOf(relationship.inverse);
    Q_ASSERT(column >= 0);
    const Attribute &inverse = child.attributes.at(column);
    QList<std::shared_ptr<Record>> candidates =
        fetchRows(child, quotedIdentifier(inverse.name) + u" = ?"_s, {parentKey}, {}, {});
    QSet<const Record *> seen;
    for (const auto &record : std::as_const(candidates))
        seen.insert(record.get());
    for (const auto &record : pendingRecords(child)) {
        if (!seen.contains(record.get()))
            candidates.append(record);
    }
    QList<std::shared_ptr<Record>> result;
    for (const auto &record : std::as_const(candidates)) {
        // Memory has the last word: a child may have moved to another parent unsaved.
        if (inverse.read(*record).toString() == parentKey)
            result.append(record);
    }
    return result;
}

QString ModelContext::selectColumns(const Entity &entity) const
{
    QStringList columns;
    for (const Attribute &attribute : entity.attributes)
        columns.append(quotedIdentifier(attribute.name));
    return columns.join(u", "_s);
}

QList<std::shared_ptr<Record>> ModelContext::fetchRows(const Entity &entity, const QString &where,
                                                       const QVariantList &bindings,
                                                       const QString &orderBy,
                                                       std::optional<qsizetype> limit)
{
    QString sql = u"SELECT "_s + selectColumns(entity) + u" FROM "_s + tableName(entity);
    if (!where.isEmpty())
        sql += u" WHERE "_s + where;
    if (!orderBy.isEmpty())
        sql += u" ORDER BY "_s + orderBy;
    QVariantList allBindings = bindings;
    if (limit) {
        sql += u" LIMIT ?"_s;
        allBindings.append(QVariant::fromValue<qint64>(std::max<qsizetype>(0, *limit)));
    }
    const QList<QVariantList> rows = m_db.query(sql, allBindings);
    QList<std::shared_ptr<Record>> records;
    records.reserve(rows.size());
    for (const QVariantList &row : rows) {
        if (auto record = materialize(entity, row))
            records.append(std::move(record));
    }
    if (!records.isEmpty())
        scheduleAutosave();
    return records;
}

qint64 ModelContext::countRows(const Entity &entity, const QString &where,
                               const QVariantList &bindings, std::optional<qsizetype> limit)
{
    QString sql = u"SELECT count(*) FROM "_s + tableName(entity);
    if (!where.isEmpty())
        sql += u" WHERE "_s + where;
    const qint64 count = m_db.scalar(sql, bindings).toLongLong();
    return limit ? std::min<qint64>(count, std::max<qsizetype>(0, *limit)) : count;
}

QList<std::shared_ptr<Record>> ModelContext::pendingRecords(const Entity &entity) const
{
    QList<std::shared_ptr<Record>> records;
    const auto table = m_registry.constFind(&entity);
    if (table == m_registry.cend())
        return records;
    for (const Slot &slot : *table) {
        if (!slot.deleted && (slot.inserted || isChanged(entity, slot)))
            records.append(slot.object);
    }
    return records;
}

std::shared_ptr<Record> ModelContext::materialize(const Entity &entity, const QVariantList &row)
{
    const QString key = row.value(0).toString();
    if (auto existing = slotsOf(entity).find(key); existing != slotsOf(entity).end()) {
        existing->persisted = true;
        return existing->deleted ? nullptr : existing->object;
    }

    std::shared_ptr<Record> record = entity.make();
    record->m_context = this;
    // Registered before its relations resolve, so that a lookup that comes back here finds it.
    Slot slot;
    slot.object = record;
    slot.persisted = true;
    slotsOf(entity).insert(key, std::move(slot));
    for (qsizetype i = 0; i < entity.attributes.size(); ++i) {
        const Attribute &attribute = entity.attributes.at(i);
        if (attribute.kind == Attribute::Kind::External) {
            ExternalBytes &bytes = attribute.external(*record);
            bytes.m_value.clear();
            bytes.m_present = !row.value(i).isNull();
            bytes.m_loaded = !bytes.m_present;
            bytes.m_changed = false;
            bytes.m_loader = [context = QPointer<ModelContext>(this), &entity, &attribute, key] {
                return context ? context->loadExternal(entity, attribute, key) : QByteArray();
            };
        } else {
            attribute.write(*record, row.value(i), *this);
        }
    }
    // Read back rather than keep the row, so that values the fields normalise (a relation to a
    // row that is gone, say) don't count as changes.
    slotsOf(entity)[key].snapshot = currentValues(entity, *record);
    return record;
}

std::shared_ptr<Record> ModelContext::recordForKey(const Entity &entity, const QString &key)
{
    const Slots &table = slotsOf(entity);
    if (auto existing = table.constFind(key); existing != table.cend())
        return existing->deleted ? nullptr : existing->object;
    const QList<std::shared_ptr<Record>> found =
        fetchRows(entity, quotedIdentifier(entity.key().name) + u" = ?"_s, {key}, {}, std::nullopt);
    return found.isEmpty() ? nullptr : found.first();
}

QByteArray ModelContext::loadExternal(const Entity &entity, const Attribute &attribute,
                                      const QString &key)
{
    try {
        return m_db
            .scalar(
                u"SELECT data FROM \"LargeValue\" WHERE entity = ? AND attribute = ? AND owner = ?"_s,
                {entity.name, attribute.name, key})
            .toByteArray();
    } catch (const StoreError &) {
        return {};
    }
}

void ModelContext::insertRelatedTargets()
{
    // A record that points at one that was never inserted brings it along, as the relation
    // would otherwise point at nothing after a reload.
    bool added = true;
    while (added) {
        added = false;
        const auto registry = m_registry; // insert() may add tables
        for (auto it = registry.cbegin(); it != registry.cend(); ++it) {
            const Entity &entity = *it.key();
            for (const Slot &slot : it.value()) {
                if (slot.deleted)
                    continue;
                for (const Attribute &attribute : entity.attributes) {
                    if (attribute.kind != Attribute::Kind::Relation)
                        continue;
                    const std::shared_ptr<Record> target = attribute.related(*slot.object);
                    if (target && target->m_context != this) {
                        insert(target);
                        added = true;
                    }
                }
            }
        }
    }
}

void ModelContext::save()
{
    insertRelatedTargets();

    struct Write {
        const Entity *entity;
        QString key;
        enum { Delete, Upsert, Update } kind;
        QVariantList values;
        QList<int> changedColumns;
    };
    QList<Write> writes;
    for (auto it = m_registry.begin(); it != m_registry.end(); ++it) {
        const Entity &entity = *it.key();
        for (auto slot = it->begin(); slot != it->end(); ++slot) {
            const QString currentKey = entity.keyOf(*slot->object);
            if (!slot->deleted && currentKey != slot.key())
                throw StoreError(
                    u"A %1 record's identity changed after it was stored."_s.arg(entity.name));
            if (slot->deleted) {
                if (slot->persisted)
                    writes.append({&entity, slot.key(), Write::Delete, {}, {}});
                continue;
            }
            QVariantList values = currentValues(entity, *slot->object);
            if (slot->inserted) {
                writes.append({&entity, slot.key(), Write::Upsert, std::move(values), {}});
                continue;
            }
            QList<int> changed;
            for (int i = 0; i < entity.attributes.size(); ++i) {
                const Attribute &attribute = entity.attributes.at(i);
                const bool differs = attribute.kind == Attribute::Kind::External
                                         ? attribute.external(*slot->object).m_changed
                                         : values.at(i) != slot->snapshot.at(i);
                if (differs)
                    changed.append(i);
            }
            if (!changed.isEmpty())
                writes.append({&entity, slot.key(), Write::Update, std::move(values), changed});
        }
    }
    if (writes.isEmpty())
        return;

    auto writeExternal = [this](const Entity &entity, const Attribute &attribute,
                                const QString &key, Record &record) {
        ExternalBytes &bytes = attribute.external(record);
        if (bytes.hasValue()) {
            m_db.prepare(
                    u"INSERT INTO \"LargeValue\" (entity, attribute, owner, data) VALUES (?, ?, ?, "
                    u"?) "
                    "ON CONFLICT (entity, attribute, owner) DO UPDATE SET data = excluded.data"_s)
                .bindAll({entity.name, attribute.name, key, bytes.value()})
                .step();
        } else {
            m_db.prepare(
                    u"DELETE FROM \"LargeValue\" WHERE entity = ? AND attribute = ? AND owner = ?"_s)
                .bindAll({entity.name, attribute.name, key})
                .step();
        }
    };

    m_db.exec(u"BEGIN IMMEDIATE"_s);
    try {
        for (const Write &write : std::as_const(writes)) {
            const Entity &entity = *write.entity;
            const QString keyColumn = quotedIdentifier(entity.key().name);
            Record &record = *m_registry[&entity][write.key].object;
            switch (write.kind) {
            case Write::Delete:
                m_db.prepare(u"DELETE FROM "_s + tableName(entity) + u" WHERE "_s + keyColumn +
                             u" = ?"_s)
                    .bind(1, write.key)
                    .step();
                m_db.prepare(u"DELETE FROM \"LargeValue\" WHERE entity = ? AND owner = ?"_s)
                    .bindAll({entity.name, write.key})
                    .step();
                break;
            case Write::Upsert: {
                QStringList columns, placeholders, assignments;
                for (const Attribute &attribute : entity.attributes) {
                    const QString column = quotedIdentifier(attribute.name);
                    columns.append(column);
                    placeholders.append(u"?"_s);
                    assignments.append(column + u" = excluded."_s + column);
                }
                m_db.prepare(u"INSERT INTO "_s + tableName(entity) + u" ("_s +
                             columns.join(u", "_s) + u") VALUES ("_s + placeholders.join(u", "_s) +
                             u") ON CONFLICT ("_s + keyColumn + u") DO UPDATE SET "_s +
                             assignments.join(u", "_s))
                    .bindAll(write.values)
                    .step();
                for (const Attribute &attribute : entity.attributes) {
                    if (attribute.kind == Attribute::Kind::External)
                        writeExternal(entity, attribute, write.key, record);
                }
                break;
            }
            case Write::Update: {
                QStringList assignments;
                QVariantList bindings;
                for (int i : write.changedColumns) {
                    const Attribute &attribute = entity.attributes.at(i);
                    assignments.append(quotedIdentifier(attribute.name) + u" = ?"_s);
                    bindings.append(write.values.at(i));
                    if (attribute.kind == Attribute::Kind::External)
                        writeExternal(entity, attribute, write.key, record);
                }
                bindings.append(write.key);
                m_db.prepare(u"UPDATE "_s + tableName(entity) + u" SET "_s +
                             assignments.join(u", "_s) + u" WHERE "_s + keyColumn + u" = ?"_s)
                    .bindAll(bindings)
                    .step();
                break;
            }
            }
        }
        m_db.exec(u"COMMIT"_s);
    } catch (const StoreError &) {
        try {
            m_db.exec(u"ROLLBACK"_s);
        } catch (const StoreError &) {
            // The transaction is already gone; nothing was written.
        }
        throw;
    }

    // Written: the snapshots now describe the file.
    for (const Write &write : std::as_const(writes)) {
        Slots &table = m_registry[write.entity];
        auto slot = table.find(write.key);
        if (write.kind == Write::Delete) {
            slot->object->m_context = nullptr;
            table.erase(slot);
            continue;
        }
        slot->snapshot = write.values;
        slot->inserted = false;
        slot->persisted = true;
        for (const Attribute &attribute : write.entity->attributes) {
            if (attribute.kind == Attribute::Kind::External)
                attribute.external(*slot->object).m_changed = false;
        }
    }
    // Deleted objects that never reached the file are simply forgotten.
    for (Slots &table : m_registry) {
        for (auto slot = table.begin(); slot != table.end();) {
            if (slot->deleted) {
                slot->object->m_context = nullptr;
                slot = table.erase(slot);
            } else {
                ++slot;
            }
        }
    }
    prune();
    emit didSave();
}

bool ModelContext::trySave() noexcept
{
    try {
        save();
        return true;
    } catch (const StoreError &) {
        return false;
    }
}

void ModelContext::prune()
{
    // Clean records that nobody outside the context holds are let go; a later fetch reads them
    // again. Children hold their parents, so repeat until nothing more goes.
    bool pruned = true;
    while (pruned) {
        pruned = false;
        for (auto it = m_registry.begin(); it != m_registry.end(); ++it) {
            const Entity &entity = *it.key();
            for (auto slot = it->begin(); slot != it->end();) {
                if (slot->object.use_count() == 1 && !slot->inserted && !slot->deleted &&
                    !isChanged(entity, *slot)) {
                    slot->object->m_context = nullptr;
                    slot = it->erase(slot);
                    pruned = true;
                } else {
                    ++slot;
                }
            }
        }
    }
}
