#include "ModelContainer.h"

#include "Database.h"
#include "ModelContext.h"
#include "StoreError.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

constexpr QFileDevice::Permissions ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

// Before SQLite sees the file: refuse one that isn't a database at all, so that SQLite never
// writes beside it. A new store is created readable by its owner only; SQLite gives its sidecars
// the same permissions.
void prepareFile(const QString &path)
{
    if (path.isEmpty())
        throw StoreError(u"No location was given for the database."_s);
    const QFileInfo info(path);
    const QString folder = info.absolutePath();
    if (!QFileInfo(folder).isDir()) {
        if (!QDir().mkpath(folder))
            throw StoreError(u"The folder %1 can't be created."_s.arg(folder));
        QFile::setPermissions(folder, ownerOnly | QFileDevice::ExeOwner);
    }
    QFile file(path);
    if (!info.exists()) {
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
            throw StoreError(file.errorString());
        file.close();
        file.setPermissions(ownerOnly);
        return;
    }
    if (!info.isFile())
        throw StoreError(u"%1 is not a file."_s.arg(path));
    if (!file.open(QIODevice::ReadOnly))
        throw StoreError(file.errorString());
    const QByteArray header = file.read(16);
    if (!header.isEmpty() && header != QByteArrayView("SQLite format 3\0", 16))
        throw StoreError(u"file is not a database"_s);
}

const QString metadataTable = u"StoreMetadata"_s;
const QString largeValueTable = u"LargeValue"_s;

} // namespace

ModelContainer::ModelContainer(const Schema &schema, const Configuration &configuration)
    : m_schema(schema)
    , m_configuration(configuration)
{
    if (!configuration.inMemory)
        prepareFile(configuration.path);
    m_db = std::make_unique<Database>(configuration.inMemory ? QString() : configuration.path);
    try {
        // Durable commits: with WAL and FULL, a save that returned has reached the disk.
        if (!configuration.inMemory) {
            const QString mode = m_db->scalar(u"PRAGMA journal_mode = WAL"_s).toString();
            if (mode.compare(u"wal"_s, Qt::CaseInsensitive) != 0)
                throw StoreError(u"The database can't use write-ahead logging (%1)."_s.arg(mode));
        }
        m_db->exec(u"PRAGMA synchronous = FULL"_s);
        m_db->exec(u"PRAGMA busy_timeout = 5000"_s);
        prepareSchema();
        m_context = std::make_unique<ModelContext>(*m_db, m_schema);
    } catch (...) {
        // A damaged store is set aside as it is: the last connection's close must not copy
        // the log into it.
        m_db->keepFilesOnClose();
        m_db.reset();
        throw;
    }
}

ModelContainer::~ModelContainer()
{
    m_context.reset();
    m_db.reset();
}

QString ModelContainer::storedSchemaVersion() const
{
    return m_db
        ->scalar(u"SELECT value FROM "_s + quotedIdentifier(metadataTable) +
                 u" WHERE key = 'schemaVersion'"_s)
        .toString();
}

void ModelContainer::prepareSchema()
{
    // Reading the catalogue is what tells a damaged or foreign file from a database.
    m_db->scalar(u"SELECT count(*) FROM sqlite_master"_s);

    m_db->exec(u"BEGIN IMMEDIATE"_s);
    try {
        m_db->exec(u"CREATE TABLE IF NOT EXISTS "_s + quotedIdentifier(metadataTable) +
                   u" (key TEXT PRIMARY KEY NOT NULL, value TEXT)"_s);
        m_db->query(u"INSERT OR IGNORE INTO "_s + quotedIdentifier(metadataTable) +
                        u" (key, value) VALUES ('schemaVersion', ?)"_s,
                    {m_schema.version});
        m_db->exec(u"CREATE TABLE IF NOT EXISTS "_s + quotedIdentifier(largeValueTable) +
                   u" (entity TEXT NOT NULL, attribute TEXT NOT NULL, owner TEXT NOT NULL, "
                   "data BLOB, PRIMARY KEY (entity, attribute, owner))"_s);

        for (const Entity *entity : std::as_const(m_schema.entities)) {
            const QString table = quotedIdentifier(entity->name);
            const QString keyColumn = quotedIdentifier(entity->key().name);
            if (!m_db->tableExists(entity->name)) {
                QStringList columns;
                for (const Attribute &attribute : entity->attributes) {
                    QString column = quotedIdentifier(attribute.name) + u' ' + attribute.sqlType;
                    if (&attribute == &entity->key())
                        column += u" PRIMARY KEY NOT NULL"_s;
                    columns.append(column);
                }
                m_db->exec(u"CREATE TABLE "_s + table + u" ("_s + columns.join(u", "_s) + u')');
            } else {
                // A file written with fewer columns: add them, holding the schema's defaults.
                const QStringList existing = m_db->columns(entity->name);
                for (const Attribute &attribute : entity->attributes) {
                    if (existing.contains(attribute.name))
                        continue;
                    const QString column = quotedIdentifier(attribute.name);
                    m_db->exec(u"ALTER TABLE "_s + table + u" ADD COLUMN "_s + column + u' ' +
                               attribute.sqlType);
                    if (&attribute == &entity->key()) {
                        // Every row needs its own identity.
                        const auto rowids = m_db->query(u"SELECT rowid FROM "_s + table);
                        for (const QVariantList &row : rowids)
                            m_db->query(u"UPDATE "_s + table + u" SET "_s + column +
                                            u" = ? WHERE rowid = ?"_s,
                                        {attribute.missingColumnValue(), row.value(0)});
                    } else if (attribute.missingColumnValue) {
                        m_db->query(u"UPDATE "_s + table + u" SET "_s + column + u" = ?"_s,
                                    {attribute.missingColumnValue()});
                    }
                }
                // Upserts need the key to be unique; tables this store created have it as
                // their primary key already.
                bool keyIsPrimary = false;
                for (const QVariantList &info :
                     m_db->query(u"PRAGMA table_info("_s + table + u')')) {
                    if (info.value(1).toString() == entity->key().name)
                        keyIsPrimary = info.value(5).toLongLong() == 1;
                }
                if (!keyIsPrimary) {
                    m_db->exec(
                        u"CREATE UNIQUE INDEX IF NOT EXISTS "_s +
                        quotedIdentifier(entity->name + u'_' + entity->key().name + u"_key"_s) +
                        u" ON "_s + table + u" ("_s + keyColumn + u')');
                }
            }
            for (const Attribute &attribute : entity->attributes) {
                // Named indexes, and one on every relation so that children are found fast.
                if (attribute.indexed || attribute.kind == Attribute::Kind::Relation) {
                    m_db->exec(u"CREATE INDEX IF NOT EXISTS "_s +
                               quotedIdentifier(entity->name + u'_' + attribute.name) + u" ON "_s +
                               table + u" ("_s + quotedIdentifier(attribute.name) + u')');
                }
            }
        }
        if (m_schema.extend)
            m_schema.extend(*m_db);
        m_db->exec(u"COMMIT"_s);
    } catch (const StoreError &) {
        try {
            m_db->exec(u"ROLLBACK"_s);
        } catch (const StoreError &) {
        }
        throw;
    }
}
