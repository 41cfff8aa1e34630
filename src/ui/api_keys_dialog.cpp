#include "ui/api_keys_dialog.h"

#include "app/language.h"
#include "providers/api_keys.h"

#include <QAction>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

namespace {

constexpr int kIconSize = 32; // drawn large, scaled down by the line edit

// An almond-shaped eye with its pupil; crossed out by a diagonal stroke when `crossed`.
QIcon eyeIcon(const QColor &color, bool crossed)
{
    QPixmap pixmap(kIconSize, kIconSize);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(color, 2.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));

    QPainterPath outline;
    outline.moveTo(3, 16);
    outline.quadTo(16, 3, 29, 16);
    outline.quadTo(16, 29, 3, 16);
    painter.drawPath(outline);
    painter.setBrush(color);
    painter.drawEllipse(QPointF(16, 16), 4, 4);

    if (crossed)
        painter.drawLine(QPointF(6, 26), QPointF(26, 6));
    painter.end();
    return QIcon(pixmap);
}

QString showKeyText()
{
    return translated(QStringLiteral("Show key"), QStringLiteral("Mostrar chave"));
}

QString hideKeyText()
{
    return translated(QStringLiteral("Hide key"), QStringLiteral("Ocultar chave"));
}

} // namespace

ApiKeysDialog::ApiKeysDialog(const ApiKeyStore &keys, QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(translated(QStringLiteral("API Keys"), QStringLiteral("Chaves de API")));
    resize(560, 520);

    const QColor iconColor = palette().color(QPalette::Text);
    m_showIcon = eyeIcon(iconColor, false);
    m_hideIcon = eyeIcon(iconColor, true);

    auto *note = new QLabel(
            translated(QStringLiteral("Local keys are saved in the user config folder. They are "
                                      "not included in account sync."),
                       QStringLiteral("As chaves locais são salvas na pasta de configuração do "
                                      "usuário. Elas não entram na sincronização da conta.")),
            this);
    note->setWordWrap(true);

    auto *form = new QWidget;
    auto *formLayout = new QFormLayout(form);
    formLayout->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    formLayout->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    formLayout->setVerticalSpacing(8);
    formLayout->setContentsMargins(8, 8, 12, 8); // keeps the fields off the scroll bar
    for (const ApiKeyEntry &entry : apiKeyCatalogue()) {
        const QString description = entry.description();
        QLineEdit *field =
                createField(entry.name, description, keys.apiKey(QString::fromLatin1(entry.name)));
        auto *label = new QLabel(entry.displayLabel(), form);
        label->setBuddy(field);
        label->setToolTip(description);
        formLayout->addRow(label, field);
        m_fields.push_back(field);
    }

    auto *scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::StyledPanel); // shows where the rows scroll
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidget(form);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Save)
            ->setText(translated(QStringLiteral("Save"), QStringLiteral("Salvar")));
    buttons->button(QDialogButtonBox::Cancel)
            ->setText(translated(QStringLiteral("Cancel"), QStringLiteral("Cancelar")));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(note);
    layout->addWidget(scroll, 1);
    layout->addWidget(buttons);
}

QLineEdit *ApiKeysDialog::createField(const char *name, const QString &description,
                                      const QString &value)
{
    auto *field = new QLineEdit(value);
    field->setObjectName(QString::fromLatin1(name));
    field->setPlaceholderText(description);
    field->setToolTip(description); // the whole text, when the placeholder is cut short
    field->setClearButtonEnabled(true);
    field->setMinimumWidth(240);

    auto *toggle = new QAction(field);
    toggle->setObjectName(QStringLiteral("toggleKeyVisibility"));
    field->addAction(toggle, QLineEdit::TrailingPosition);
    setMasked(field, toggle, true);
    connect(toggle, &QAction::triggered, this, [this, field, toggle] {
        setMasked(field, toggle, field->echoMode() != QLineEdit::Password);
    });
    return field;
}

void ApiKeysDialog::setMasked(QLineEdit *field, QAction *toggle, bool masked)
{
    field->setEchoMode(masked ? QLineEdit::Password : QLineEdit::Normal);
    toggle->setIcon(masked ? m_showIcon : m_hideIcon);
    toggle->setToolTip(masked ? showKeyText() : hideKeyText());
    toggle->setText(toggle->toolTip());
}

void ApiKeysDialog::applyTo(ApiKeyStore &keys) const
{
    for (const QLineEdit *field : m_fields)
        keys.setApiKey(field->objectName(), field->text().trimmed());
}

bool runApiKeysDialog(ApiKeyStore &keys, QWidget *parent)
{
    ApiKeysDialog dialog(keys, parent);
    if (dialog.exec() != QDialog::Accepted)
        return false;
    dialog.applyTo(keys);
    return true;
}
