#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>
#include <variant>

// How each assistant takes on Tovren's listener: the sentence telling the user what to do and
// the text to paste or the form to fill. Every client ends up running the same `nc` bridge.
struct AIConnector {
    struct Field {
        QString label;
        QString value;
        // A literal is typed or copied exactly; anything else is advice ("Leave empty").
        bool isLiteral = false;
    };
    // A one-click install elsewhere; here the text is what the user pastes by hand.
    struct ClaudeExtension {
        QString text;
    };
    struct Fields {
        QList<Field> fields;
    };
    struct Command {
        QString text;
    };
    struct Json {
        QString text;
    };
    struct Unsupported {
        QString reason;
    };
    using Payload = std::variant<ClaudeExtension, Fields, Command, Json, Unsupported>;

    QString id;
    QString name;
    QString instructions;
    Payload payload;
    std::optional<QString> instructionsHome;

    // What the assistant runs to reach the listener: `nc` where it is installed, else
    // Tovren's own stdio bridge.
    struct Bridge {
        QString program; // a full path, for JSON configs and forms
        QStringList arguments;
        QString shellCommand() const; // for a terminal, where PATH finds the program

        static Bridge netcat(int port);
        static Bridge ownBridge(const QString &executable);
        // `nc` when /usr/bin/nc exists, else `tovren mcp` at `executable`.
        static Bridge detect(int port, const QString &executable);
    };

    static QList<AIConnector> all(int port) { return all(Bridge::netcat(port)); }
    static QList<AIConnector> all(const Bridge &bridge);
    // The picker's first selection.
    static inline const QString initialId = QStringLiteral("chatgpt");

    // The snippet the Claude row offers under "Set it up by hand".
    static inline const QString byHandTitle = QStringLiteral("Set it up by hand");
    static inline const QString byHandInstructions = QStringLiteral(
        "In the Claude app, open Settings, then Developer, then Open Developer Config File. Add "
        "this inside `mcpServers`, keeping anything already there, then quit and reopen Claude:");

    // The line that makes an assistant log work by itself.
    static inline const QString standingLineHeading = QStringLiteral("Make it automatic");
    static inline const QString standingLine = QStringLiteral(
        "When we finish a piece of work, add a short entry to my Tovren journal saying what we "
        "did and why it mattered.");
    QString standingLineSentence(bool compact) const;

    // The text a single copy control puts on the clipboard: the command or snippet.
    std::optional<QString> copyableText() const;
};
