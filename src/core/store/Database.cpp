#include "Database.h"

#include "StoreError.h"

#include <QDateTime>
#include <QFile>

#include <sqlite3.h>

using namespace Qt::StringLiterals;

namespace {

// tovren_fold(text): the text lower-cased exactly as QString::toLower does, so that what SQL
// keeps for searching is what the application compares. NULL stays NULL.
void foldText(sqlite3_context *context, int, sqlite3_value **arguments)
{
    if (sqlite3_value_type(arguments[0]) == SQLITE_NULL) {
        sqlite3_result_null(context);
        return;
    }
    const auto *text = reinterpret_cast<const char *>(sqlite3_value_text(arguments[0]));
    const QByteArray folded =
        QString::fromUtf8(text, sqlite3_value_bytes(arguments[0])).toLower().toUtf8();
    sqlite3_result_text64(context, folded.constData(), sqlite3_uint64(folded.size()),
                          SQLITE_TRANSIENT, SQLITE_UTF8);
}

} // namespace

QString quotedIdentifier(const QString &name)
{
    QString escaped = name;
    escaped.replace(u'"', u"\"\""_s);
    return u'"' + escaped + u'"';
}

Database::Database(const QString &path)
{
    const QByteArray file = path.isEmpty() ? QByteArray(":memory:") : QFile::encodeName(path);
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    const int rc = sqlite3_open_v2(file.constData(), &m_db, flags, nullptr);
    if (rc != SQLITE_OK) {
        const QString message =
            m_db ? QString::fromUtf8(sqlite3_errmsg(m_db)) : QString::fromUtf8(sqlite3_errstr(rc));
        sqlite3_close(m_db);
        m_db = nullptr;
        throw StoreError(message);
    }
    sqlite3_extended_result_codes(m_db, 1);
    // Triggers call it, so every connection that writes the file needs it.
    sqlite3_create_function_v2(m_db, "tovren_fold", 1,
                               SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS, nullptr,
                               foldText, nullptr, nullptr, nullptr);
}

Database::~Database()
{
    for (sqlite3_stmt *stmt : std::as_const(m_cache))
        sqlite3_finalize(stmt);
    sqlite3_close(m_db);
}

void Database::keepFilesOnClose()
{
    sqlite3_db_config(m_db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

void Database::fail(const QString &) const
{
    throw StoreError(QString::fromUtf8(sqlite3_errmsg(m_db)));
}

Database::Statement Database::prepare(const QString &sql)
{
    sqlite3_stmt *stmt = m_cache.value(sql);
    if (!stmt) {
        const QByteArray utf8 = sql.toUtf8();
        if (sqlite3_prepare_v3(m_db, utf8.constData(), int(utf8.size()), SQLITE_PREPARE_PERSISTENT,
                               &stmt, nullptr) != SQLITE_OK)
            fail(sql);
        m_cache.insert(sql, stmt);
    } else {
        sqlite3_reset(stmt);
        sqlite3_clear_bindings(stmt);
    }
    return Statement(this, stmt);
}

void Database::exec(const QString &sql)
{
    char *error = nullptr;
    if (sqlite3_exec(m_db, sql.toUtf8().constData(), nullptr, nullptr, &error) != SQLITE_OK) {
        const QString message = QString::fromUtf8(error ? error : sqlite3_errmsg(m_db));
        sqlite3_free(error);
        throw StoreError(message);
    }
}

QList<QVariantList> Database::query(const QString &sql, const QVariantList &bindings)
{
    Statement stmt = prepare(sql);
    stmt.bindAll(bindings);
    QList<QVariantList> rows;
    while (stmt.step()) {
        QVariantList row;
        const int n = stmt.columnCount();
        row.reserve(n);
        for (int i = 0; i < n; ++i)
            row.append(stmt.column(i));
        rows.append(std::move(row));
    }
    stmt.reset();
    return rows;
}

QVariant Database::scalar(const QString &sql, const QVariantList &bindings)
{
    Statement stmt = prepare(sql);
    stmt.bindAll(bindings);
    QVariant value = stmt.step() ? stmt.column(0) : QVariant();
    stmt.reset();
    return value;
}

bool Database::tableExists(const QString &table)
{
    return scalar(u"SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name = ?"_s,
                  {table})
               .toLongLong() > 0;
}

QStringList Database::columns(const QString &table)
{
    QStringList names;
    for (const QVariantList &row : query(u"PRAGMA table_info("_s + quotedIdentifier(table) + u')'))
        names.append(row.value(1).toString());
    return names;
}

Database::Statement &Database::Statement::bind(int index, const QVariant &value)
{
    int rc = SQLITE_OK;
    if (!value.isValid() || value.isNull()) {
        rc = sqlite3_bind_null(m_stmt, index);
    } else {
        switch (value.metaType().id()) {
        case QMetaType::Bool:
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
            rc = sqlite3_bind_int64(m_stmt, index, value.toLongLong());
            break;
        case QMetaType::Double:
            rc = sqlite3_bind_double(m_stmt, index, value.toDouble());
            break;
        case QMetaType::QByteArray: {
            const QByteArray bytes = value.toByteArray();
            rc = sqlite3_bind_blob64(m_stmt, index, bytes.constData(), sqlite3_uint64(bytes.size()),
                                     SQLITE_TRANSIENT);
            break;
        }
        default: {
            const QByteArray text = value.toString().toUtf8();
            rc = sqlite3_bind_text64(m_stmt, index, text.constData(), sqlite3_uint64(text.size()),
                                     SQLITE_TRANSIENT, SQLITE_UTF8);
            break;
        }
        }
    }
    if (rc != SQLITE_OK)
        m_db->fail(u"bind"_s);
    return *this;
}

Database::Statement &Database::Statement::bindAll(const QVariantList &values)
{
    for (int i = 0; i < values.size(); ++i)
        bind(i + 1, values.at(i));
    return *this;
}

bool Database::Statement::step()
{
    const int rc = sqlite3_step(m_stmt);
    if (rc == SQLITE_ROW)
        return true;
    if (rc == SQLITE_DONE)
        return false;
    const QString message = QString::fromUtf8(sqlite3_errmsg(m_db->handle()));
    sqlite3_reset(m_stmt);
    throw StoreError(message);
}

QVariant Database::Statement::column(int index) const
{
    switch (sqlite3_column_type(m_stmt, index)) {
    case SQLITE_INTEGER:
        return QVariant::fromValue<qint64>(sqlite3_column_int64(m_stmt, index));
    case SQLITE_FLOAT:
        return sqlite3_column_double(m_stmt, index);
    case SQLITE_TEXT:
        return QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(m_stmt, index)),
                                 sqlite3_column_bytes(m_stmt, index));
    case SQLITE_BLOB:
        return QByteArray(static_cast<const char *>(sqlite3_column_blob(m_stmt, index)),
                          sqlite3_column_bytes(m_stmt, index));
    default:
        return QVariant();
    }
}

int Database::Statement::columnCount() const
{
    return sqlite3_column_count(m_stmt);
}

void Database::Statement::reset()
{
    sqlite3_reset(m_stmt);
}
