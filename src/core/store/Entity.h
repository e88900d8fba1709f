#pragma once

#include "Record.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QUuid>
#include <QVariant>

#include <any>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>

class Database;
class ModelContext;

// How a C++ field is kept in a column. Times are whole milliseconds since 1970 (UTC), flags are
// 0 or 1, UUIDs and relationships are their text, and absent values are NULL.
template<class M>
struct ColumnTraits;

template<>
struct ColumnTraits<bool> {
    static QVariant toSql(bool v) { return QVariant::fromValue<qint64>(v ? 1 : 0); }
    static bool fromSql(const QVariant &v) { return v.toLongLong() != 0; }
    static constexpr const char *sqlType = "INTEGER";
};
template<>
struct ColumnTraits<int> {
    static QVariant toSql(int v) { return QVariant::fromValue<qint64>(v); }
    static int fromSql(const QVariant &v) { return int(v.toLongLong()); }
    static constexpr const char *sqlType = "INTEGER";
};
template<>
struct ColumnTraits<qint64> {
    static QVariant toSql(qint64 v) { return QVariant::fromValue<qint64>(v); }
    static qint64 fromSql(const QVariant &v) { return v.toLongLong(); }
    static constexpr const char *sqlType = "INTEGER";
};
template<>
struct ColumnTraits<double> {
    static QVariant toSql(double v) { return v; }
    static double fromSql(const QVariant &v) { return v.toDouble(); }
    static constexpr const char *sqlType = "REAL";
};
template<>
struct ColumnTraits<QString> {
    static QVariant toSql(const QString &v) { return v; }
    static QString fromSql(const QVariant &v) { return v.toString(); }
    static constexpr const char *sqlType = "TEXT";
};
template<>
struct ColumnTraits<QDateTime> {
    static QVariant toSql(const QDateTime &v)
    {
        return v.isValid() ? QVariant::fromValue<qint64>(v.toMSecsSinceEpoch()) : QVariant();
    }
    static QDateTime fromSql(const QVariant &v)
    {
        return v.isNull() ? QDateTime() : QDateTime::fromMSecsSinceEpoch(v.toLongLong(), Qt::UTC);
    }
    static constexpr const char *sqlType = "INTEGER";
};
template<>
struct ColumnTraits<QUuid> {
    static QVariant toSql(const QUuid &v) { return v.toString(QUuid::WithoutBraces); }
    static QUuid fromSql(const QVariant &v) { return QUuid::fromString(v.toString()); }
    static constexpr const char *sqlType = "TEXT";
};
template<class X>
struct ColumnTraits<std::optional<X>> {
    static QVariant toSql(const std::optional<X> &v)
    {
        return v ? ColumnTraits<X>::toSql(*v) : QVariant();
    }
    static std::optional<X> fromSql(const QVariant &v)
    {
        if (v.isNull())
            return std::nullopt;
        return ColumnTraits<X>::fromSql(v);
    }
    static constexpr const char *sqlType = ColumnTraits<X>::sqlType;
};

template<class M>
struct IsSharedPtr : std::false_type {
    using Target = void;
};
template<class R>
struct IsSharedPtr<std::shared_ptr<R>> : std::true_type {
    using Target = R;
};

// One column of a record type.
struct Attribute {
    enum class Kind { Value, Relation, External };

    QString name;
    Kind kind = Kind::Value;
    QString sqlType;
    bool indexed = false;
    // Relations: the entity of the target, asked lazily since entities refer to each other.
    std::function<const Entity &()> target;
    // The column value of a record (a relation gives the target's key, external bytes give
    // 1 when present and NULL when absent).
    std::function<QVariant(const Record &)> read;
    // Sets the field from a column value; relations resolve through the context.
    std::function<void(Record &, const QVariant &, ModelContext &)> write;
    // What a row of an older file that lacks this column holds.
    std::function<QVariant()> missingColumnValue;
    // The member pointer, so that predicates can find the column of a field.
    std::any member;
    // Relations only: the record the field points at.
    std::function<std::shared_ptr<Record>(const Record &)> related;
    // External bytes only: direct access to the field.
    std::function<ExternalBytes &(Record &)> external;
};

// A to-many relationship: the children are the records of `child` whose `inverse` relation names
// the parent. Deleting the parent deletes them.
struct CascadeRelationship {
    QString name;
    std::function<const Entity &()> child;
    QString inverse;
};

// A record type: its table, its key column and its columns.
class Entity {
public:
    QString name;
    QList<Attribute> attributes; // the key first
    QList<CascadeRelationship> cascades;
    std::function<std::shared_ptr<Record>()> make; // an empty record to load a row into

    const Attribute &key() const { return attributes.first(); }
    QString keyOf(const Record &record) const { return key().read(record).toString(); }
    int indexOf(const QString &attributeName) const;

    template<class T, class M>
    const Attribute *attributeFor(M T::*member) const
    {
        for (const Attribute &attribute : attributes) {
            if (const auto *candidate = std::any_cast<M T::*>(&attribute.member);
                candidate && *candidate == member)
                return &attribute;
        }
        return nullptr;
    }
};

// Resolves the record of `target` whose key is `key`; defined by ModelContext.
std::shared_ptr<Record> resolveRelation(ModelContext &context, const Entity &target,
                                        const QString &key);

// Builds an entity from member pointers, so that the columns and the fields can't drift apart.
template<class T>
class EntityBuilder {
public:
    explicit EntityBuilder(QString name)
    {
        m_entity.name = std::move(name);
        m_entity.make = [] {
            return std::shared_ptr<Record>(std::make_shared<T>(typename T::Loading{}));
        };
    }

    // A plain value column; `missing` is what rows of an older file get.
    template<class M>
    EntityBuilder &attribute(const QString &name, M T::*member, std::function<QVariant()> missing,
                             bool indexed = false)
    {
        Attribute a;
        a.name = name;
        a.member = member;
        a.indexed = indexed;
        a.missingColumnValue = std::move(missing);
        if constexpr (IsSharedPtr<M>::value) {
            using R = typename IsSharedPtr<M>::Target;
            a.kind = Attribute::Kind::Relation;
            a.sqlType = QStringLiteral("TEXT");
            a.target = []() -> const Entity & { return R::staticEntity(); };
            a.read = [member](const Record &r) {
                const auto &target = static_cast<const T &>(r).*member;
                return target ? QVariant(R::staticEntity().keyOf(*target)) : QVariant();
            };
            a.related = [member](const Record &r) -> std::shared_ptr<Record> {
                return static_cast<const T &>(r).*member;
            };
            a.write = [member](Record &r, const QVariant &v, ModelContext &context) {
                std::shared_ptr<R> resolved;
                if (!v.isNull())
                    resolved = std::static_pointer_cast<R>(
                        resolveRelation(context, R::staticEntity(), v.toString()));
                static_cast<T &>(r).*member = resolved;
            };
        } else if constexpr (std::is_same_v<M, ExternalBytes>) {
            a.kind = Attribute::Kind::External;
            a.sqlType = QStringLiteral("INTEGER");
            a.read = [member](const Record &r) {
                return (static_cast<const T &>(r).*member).hasValue()
                           ? QVariant::fromValue<qint64>(1)
                           : QVariant();
            };
            a.write = nullptr; // the context installs a loader instead
            a.external = [member](Record &r) -> ExternalBytes & {
                return static_cast<T &>(r).*member;
            };
        } else {
            a.sqlType = QString::fromLatin1(ColumnTraits<M>::sqlType);
            a.read = [member](const Record &r) {
                return ColumnTraits<M>::toSql(static_cast<const T &>(r).*member);
            };
            a.write = [member](Record &r, const QVariant &v, ModelContext &) {
                static_cast<T &>(r).*member = ColumnTraits<M>::fromSql(v);
            };
        }
        m_entity.attributes.append(std::move(a));
        return *this;
    }

    // A to-many relationship whose children are deleted with the parent.
    template<class Child>
    EntityBuilder &cascade(const QString &name, const QString &inverse)
    {
        m_entity.cascades.append(
            {name, []() -> const Entity & { return Child::staticEntity(); }, inverse});
        return *this;
    }

    Entity build() { return std::move(m_entity); }

private:
    Entity m_entity;
};

// The record types of one store, in a fixed order, and the version of their layout.
struct Schema {
    QString version;
    QList<const Entity *> entities;
    // Run once every table exists, in the same transaction: what the store keeps beyond the
    // tables (triggers, derived tables). It checks for itself what a file lacks, since it runs
    // at every open.
    std::function<void(Database &)> extend;
};
