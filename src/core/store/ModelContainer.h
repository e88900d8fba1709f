#pragma once

#include "Entity.h"

#include <QString>

#include <memory>

class Database;
class ModelContext;

// One open store: the SQLite file (or a private in-memory database), its schema brought up to
// date, and the main context. Opening either gives a working store or raises StoreError.
class ModelContainer {
public:
    struct Configuration {
        QString path; // ignored when in memory
        bool inMemory = false;

        static Configuration atPath(const QString &path) { return {path, false}; }
        static Configuration memoryOnly() { return {QString(), true}; }
    };

    ModelContainer(const Schema &schema, const Configuration &configuration);
    ~ModelContainer();
    ModelContainer(const ModelContainer &) = delete;
    ModelContainer &operator=(const ModelContainer &) = delete;

    ModelContext &mainContext() { return *m_context; }
    const Schema &schema() const { return m_schema; }
    const Configuration &configuration() const { return m_configuration; }
    bool isInMemory() const { return m_configuration.inMemory; }
    // The schema version the file says it holds.
    QString storedSchemaVersion() const;

    Database &database() { return *m_db; }

private:
    void prepareSchema();

    Schema m_schema;
    Configuration m_configuration;
    std::unique_ptr<Database> m_db;
    std::unique_ptr<ModelContext> m_context;
};
