#pragma once

#include <initializer_list>

class QComboBox;
class QHBoxLayout;
class QLabel;
class QVBoxLayout;
class QWidget;

// The frame the side pane's panels share: the panel's object name, its margins and spacing, and
// the "panelTitle" label on top. Returns the panel's layout; `title` receives the label.
QVBoxLayout *setUpSidePanel(QWidget *panel, const char *objectName, QLabel **title);

// A row of selectors that share its width evenly and shrink to a few characters in a narrow pane.
QHBoxLayout *selectorRow(std::initializer_list<QComboBox *> boxes);
