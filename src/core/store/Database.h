#pragma once

#include <QHash>
#include <QString>
#include <QVariant>

#include <memory>

struct sqlite3;
struct sqlite3_stmt;

// A thin owner of one SQLite connection. Every failure raises StoreError with SQLite's own
// words; statements are prepared once and kept for the life of the connection.
class Database {
public:
    // An empty path opens a private in-memory database.
    explicit Database(const QString &path);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    class Statement {
    public:
        Statement &bind(int index, const QVariant &value); // 1-based
        Statement &bindAll(const QVariantList &values);
        bool step(); // true while a row is available
        QVariant column(int index) const;
        int columnCount() const;
        void reset();

    private:
        friend class Database;
        Statement(Database *db, sqlite3_stmt *stmt)
            : m_db(db)
            , m_stmt(stmt)
        {
        }
        Database *m_db;
        sqlite3_stmt *m_stmt;
    };

    // A prepared, reset statement for the text; reuse keeps it cached.
    Statement prepare(const QString &sql);
    void exec(const QString &sql);
    // Runs one statement with bindings and returns every row.
    QList<QVariantList> query(const QString &sql, const QVariantList &bindings = {});
    QVariant scalar(const QString &sql, const QVariantList &bindings = {});

    bool tableExists(const QString &table);
    QStringList columns(const QString &table);

    // Closing then leaves the files as they are: no checkpoint of the log into the main file,
    // and the log and its index are not deleted. For a store that failed to open.
    void keepFilesOnClose();

    sqlite3 *handle() const { return m_db; }
    [[noreturn]] void fail(const QString &during) const;

private:
    sqlite3 *m_db = nullptr;
    QHash<QString, sqlite3_stmt *> m_cache;
};

QString quotedIdentifier(const QString &name);
