#pragma once

#include <QString>

#include <stdexcept>

// A store operation that failed, with a description a person can read.
class StoreError : public std::runtime_error {
public:
    explicit StoreError(const QString &description)
        : std::runtime_error(description.toStdString())
        , m_description(description)
    {
    }

    const QString &description() const { return m_description; }

private:
    QString m_description;
};
