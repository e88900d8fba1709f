#pragma once

#include "Entity.h"

#include <QList>
#include <QString>
#include <QVariant>

#include <functional>
#include <optional>

// A condition on records of type T that the database can answer and that can also be checked
// on the objects in memory, so that a fetch sees changes that are not saved yet. Built from
// fields: `field(&TaskItem::isCompleted) == false && field(&TaskItem::dueDate) < end`.
// Comparisons with an absent value are false, as they are in SQL.
template<class T>
struct Predicate {
    QString sql; // empty means "every row"
    QVariantList bindings;
    std::function<bool(const T &)> test; // empty means "every record"
    bool exact = true;                   // false when only memory can decide part of it

    // A condition only memory can check; the database returns every row for it.
    static Predicate where(std::function<bool(const T &)> fn)
    {
        return Predicate{QString(), {}, std::move(fn), false};
    }

    bool matches(const T &record) const { return !test || test(record); }
    bool isAll() const { return sql.isEmpty() && !test; }
};

template<class T>
Predicate<T> operator&&(Predicate<T> a, Predicate<T> b)
{
    Predicate<T> p;
    if (a.sql.isEmpty())
        p.sql = b.sql;
    else if (b.sql.isEmpty())
        p.sql = a.sql;
    else
        p.sql = u'(' + a.sql + QStringLiteral(") AND (") + b.sql + u')';
    p.bindings = a.bindings + b.bindings;
    if (!a.test)
        p.test = std::move(b.test);
    else if (!b.test)
        p.test = std::move(a.test);
    else
        p.test = [a = std::move(a.test), b = std::move(b.test)](const T &r) {
            return a(r) && b(r);
        };
    p.exact = a.exact && b.exact;
    return p;
}

template<class T>
Predicate<T> operator||(Predicate<T> a, Predicate<T> b)
{
    Predicate<T> p;
    if (!a.sql.isEmpty() && !b.sql.isEmpty()) {
        p.sql = u'(' + a.sql + QStringLiteral(") OR (") + b.sql + u')';
        p.bindings = a.bindings + b.bindings;
    }
    if (a.test && b.test)
        p.test = [a = std::move(a.test), b = std::move(b.test)](const T &r) {
            return a(r) || b(r);
        };
    p.exact = a.exact && b.exact;
    return p;
}

template<class T>
Predicate<T> operator!(Predicate<T> a)
{
    Predicate<T> p;
    if (a.exact) {
        p.sql = a.sql.isEmpty() ? QStringLiteral("0") : QStringLiteral("NOT (") + a.sql + u')';
        p.bindings = a.bindings;
    }
    if (a.test)
        p.test = [t = std::move(a.test)](const T &r) { return !t(r); };
    else
        p.test = [](const T &) { return false; };
    p.exact = a.exact;
    return p;
}

// The order of a fetch: a field and a direction. Absent values sort first, as in SQL.
template<class T>
struct SortDescriptor {
    QString column;
    bool ascending = true;
    std::function<int(const T &, const T &)> compare;
};

template<class T>
struct FetchDescriptor {
    Predicate<T> predicate;
    QList<SortDescriptor<T>> sortBy;
    std::optional<qsizetype> limit;
};

namespace PredicateDetail {

template<class V>
int compareValues(const V &a, const V &b)
{
    if constexpr (std::is_same_v<V, QString>)
        return a.compare(b);
    else
        return a < b ? -1 : (b < a ? 1 : 0);
}

template<class M>
struct FieldKind {
    using Value = M;
    static constexpr bool optional = false;
    static const Value *get(const M &m) { return &m; }
};
template<class X>
struct FieldKind<std::optional<X>> {
    using Value = X;
    static constexpr bool optional = true;
    static const Value *get(const std::optional<X> &m) { return m ? &*m : nullptr; }
};

} // namespace PredicateDetail

// A field of a record type, to build predicates and sort orders from.
template<class T, class M>
class FieldRef {
public:
    explicit FieldRef(M T::*member)
        : m_member(member)
    {
    }

    QString column() const
    {
        const Attribute *attribute = T::staticEntity().attributeFor(m_member);
        Q_ASSERT_X(attribute, "FieldRef", "field is not a column of its entity");
        return attribute ? quoted(attribute->name) : QString();
    }

    SortDescriptor<T> ascending() const { return sort(true); }
    SortDescriptor<T> descending() const { return sort(false); }

    Predicate<T> isNull() const
    {
        auto member = m_member;
        return {column() + QStringLiteral(" IS NULL"), {}, [member](const T &r) {
                    if constexpr (IsSharedPtr<M>::value)
                        return !(r.*member);
                    else
                        return !(r.*member).has_value();
                }};
    }
    Predicate<T> isNotNull() const { return !isNull(); }

    // Relations compare by the target's key.
    template<class R = typename IsSharedPtr<M>::Target>
    Predicate<T> operator==(const R *target) const requires IsSharedPtr<M>::value
    {
        if (!target)
            return isNull();
        const QString key = R::staticEntity().keyOf(*target);
        auto member = m_member;
        return {column() + QStringLiteral(" = ?"), {key}, [member, key](const T &r) {
                    const auto &value = r.*member;
                    return value && R::staticEntity().keyOf(*value) == key;
                }};
    }
    template<class R = typename IsSharedPtr<M>::Target>
    Predicate<T> operator==(const std::shared_ptr<R> &target) const requires IsSharedPtr<M>::value
    {
        return *this == target.get();
    }

    template<class V = typename PredicateDetail::FieldKind<M>::Value>
    Predicate<T> operator==(const V &v) const requires(!IsSharedPtr<M>::value)
    {
        return compare(QStringLiteral("="), v, [](int c) { return c == 0; });
    }
    template<class V = typename PredicateDetail::FieldKind<M>::Value>
    Predicate<T> operator!=(const V &v) const requires(!IsSharedPtr<M>::value)
    {
        return compare(QStringLiteral("!="), v, [](int c) { return c != 0; });
    }
    template<class V = typename PredicateDetail::FieldKind<M>::Value>
    Predicate<T> operator<(const V &v) const requires(!IsSharedPtr<M>::value)
    {
        return compare(QStringLiteral("<"), v, [](int c) { return c < 0; });
    }
    template<class V = typename PredicateDetail::FieldKind<M>::Value>
    Predicate<T> operator<=(const V &v) const requires(!IsSharedPtr<M>::value)
    {
        return compare(QStringLiteral("<="), v, [](int c) { return c <= 0; });
    }
    template<class V = typename PredicateDetail::FieldKind<M>::Value>
    Predicate<T> operator>(const V &v) const requires(!IsSharedPtr<M>::value)
    {
        return compare(QStringLiteral(">"), v, [](int c) { return c > 0; });
    }
    template<class V = typename PredicateDetail::FieldKind<M>::Value>
    Predicate<T> operator>=(const V &v) const requires(!IsSharedPtr<M>::value)
    {
        return compare(QStringLiteral(">="), v, [](int c) { return c >= 0; });
    }
    // start <= field < end
    template<class V = typename PredicateDetail::FieldKind<M>::Value>
    Predicate<T> inRange(const V &start, const V &end) const requires(!IsSharedPtr<M>::value)
    {
        return *this >= start && *this < end;
    }
    template<class V = typename PredicateDetail::FieldKind<M>::Value>
    Predicate<T> in(const QList<V> &values) const requires(!IsSharedPtr<M>::value)
    {
        using Kind = PredicateDetail::FieldKind<M>;
        if (values.isEmpty())
            return {QStringLiteral("0"), {}, [](const T &) { return false; }};
        QString sql = column() + QStringLiteral(" IN (");
        QVariantList bindings;
        for (qsizetype i = 0; i < values.size(); ++i) {
            sql += i ? QStringLiteral(", ?") : QStringLiteral("?");
            bindings.append(ColumnTraits<typename Kind::Value>::toSql(values.at(i)));
        }
        sql += u')';
        auto member = m_member;
        return {sql, bindings, [member, values](const T &r) {
                    const auto *value = Kind::get(r.*member);
                    return value && values.contains(*value);
                }};
    }

private:
    static QString quoted(const QString &name) { return u'"' + name + u'"'; }

    template<class V, class Accept>
    Predicate<T> compare(const QString &op, const V &v, Accept accept) const
    {
        using Kind = PredicateDetail::FieldKind<M>;
        using Value = typename Kind::Value;
        const Value value(v);
        QString sql = column() + u' ' + op + QStringLiteral(" ?");
        if constexpr (Kind::optional)
            sql = u'(' + column() + QStringLiteral(" IS NOT NULL AND ") + sql + u')';
        auto member = m_member;
        return {sql, {ColumnTraits<Value>::toSql(value)}, [member, value, accept](const T &r) {
                    const Value *current = Kind::get(r.*member);
                    return current && accept(PredicateDetail::compareValues(*current, value));
                }};
    }

    SortDescriptor<T> sort(bool ascending) const
    {
        auto member = m_member;
        return {column(), ascending, [member](const T &a, const T &b) {
                    if constexpr (IsSharedPtr<M>::value) {
                        using R = typename IsSharedPtr<M>::Target;
                        const QString ka =
                            a.*member ? R::staticEntity().keyOf(*(a.*member)) : QString();
                        const QString kb =
                            b.*member ? R::staticEntity().keyOf(*(b.*member)) : QString();
                        return ka.compare(kb);
                    } else {
                        using Kind = PredicateDetail::FieldKind<M>;
                        const auto *va = Kind::get(a.*member);
                        const auto *vb = Kind::get(b.*member);
                        if (!va || !vb)
                            return (va ? 1 : 0) - (vb ? 1 : 0);
                        return PredicateDetail::compareValues(*va, *vb);
                    }
                }};
    }

    M T::*m_member;
};

template<class T, class M>
FieldRef<T, M> field(M T::*member)
{
    return FieldRef<T, M>(member);
}
