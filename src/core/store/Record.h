#pragma once

#include <QByteArray>
#include <QPointer>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class Entity;
class ModelContext;

// The base of every stored record. A record is a plain object with public fields; the context
// it was inserted into or fetched from notices changes when it saves.
class Record {
public:
    virtual ~Record() = default;
    Record(const Record &) = delete;
    Record &operator=(const Record &) = delete;

    virtual const Entity &entity() const = 0;

    // The context this record belongs to, or null before insert and after it is gone.
    ModelContext *modelContext() const;

protected:
    Record() = default;

private:
    friend class ModelContext;
    QPointer<ModelContext> m_context;
};

// Bytes kept outside the record's table, read only when asked for, so that fetching records
// never reads pictures and files.
class ExternalBytes {
public:
    ExternalBytes() = default; // absent
    ExternalBytes(QByteArray data)
        : m_value(std::move(data))
        , m_present(true)
        , m_loaded(true)
        , m_changed(true)
    {
    }
    ExternalBytes(std::optional<QByteArray> data)
        : ExternalBytes()
    {
        if (data)
            *this = ExternalBytes(std::move(*data));
    }

    ExternalBytes &operator=(QByteArray data) { return *this = ExternalBytes(std::move(data)); }

    bool hasValue() const { return m_present; }
    // The bytes, read from the store on first use; empty when absent.
    QByteArray value() const;
    std::optional<QByteArray> optionalValue() const
    {
        return m_present ? std::optional(value()) : std::nullopt;
    }
    void reset() { *this = ExternalBytes(std::nullopt), m_changed = true; }

private:
    friend class ModelContext;
    mutable QByteArray m_value;
    bool m_present = false;
    mutable bool m_loaded = true;
    bool m_changed = false;
    std::function<QByteArray()> m_loader;
};
