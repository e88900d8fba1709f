#pragma once

#include <QString>

class QLabel;
class QWidget;
class QVBoxLayout;

// The few pieces every settings pane is built from, so the panes read alike.
namespace SettingsUi {

// A pane's scrolling column; add sections to the returned layout.
QVBoxLayout *paneColumn(QWidget *pane);
QLabel *sectionHeading(const QString &text, QWidget *parent = nullptr);
// Quieter, wrapping text under a control.
QLabel *hint(const QString &text, QWidget *parent = nullptr);
// Text that may carry `code` spans, shown with them in a fixed-width font.
QString withCode(const QString &text);

} // namespace SettingsUi
