#include "ui/side_panel.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

QVBoxLayout *setUpSidePanel(QWidget *panel, const char *objectName, QLabel **title)
{
    panel->setObjectName(QLatin1String(objectName));
    auto *layout = new QVBoxLayout(panel);
    layout->setContentsMargins(6, 4, 6, 6);
    layout->setSpacing(4);
    *title = new QLabel(panel);
    (*title)->setObjectName(QStringLiteral("panelTitle"));
    layout->addWidget(*title);
    return layout;
}

QHBoxLayout *selectorRow(std::initializer_list<QComboBox *> boxes)
{
    auto *row = new QHBoxLayout;
    row->setSpacing(4);
    for (QComboBox *box : boxes) {
        box->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        box->setMinimumContentsLength(3);
        row->addWidget(box, 1);
    }
    return row;
}
