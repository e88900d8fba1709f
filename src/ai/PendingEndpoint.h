#pragma once

#include <QString>
#include <QUrl>

class Preferences;

// An AI endpoint an assistant proposed through the bridge. Nothing changes until the user
// approves it in Settings; keys never come this way.
struct PendingEndpoint {
    QUrl baseUrl;
    // Empty when the assistant named none.
    QString model;

    // The host, or the whole address when it has none: what the approval question names.
    QString shownHost() const;
    // Makes the custom provider current, at this address and, when one came, with this model.
    void approve(Preferences &preferences) const;
};
