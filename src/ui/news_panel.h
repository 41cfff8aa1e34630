#pragma once

#include "overview/news.h"

#include <QList>
#include <QString>
#include <QUrl>
#include <QWidget>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableWidget;

// The News tab: the source and category selectors, the symbol/query field and the five-column
// headline table. It shows what it is given and reports what the user asked for.
class NewsPanel : public QWidget
{
    Q_OBJECT

public:
    explicit NewsPanel(QWidget *parent = nullptr);

    QString sourceId() const;
    QString categoryId() const;
    QString queryText() const; // trimmed

    // One row per item; sorting is paused while the rows are written and then restored.
    void showNews(const QList<NewsItem> &items, const QString &sourceLabel);

    QTableWidget *table() const { return m_table; }
    QComboBox *sourceSelector() const { return m_source; }
    QComboBox *categorySelector() const { return m_category; }
    QLineEdit *queryField() const { return m_query; }

signals:
    // A selector changed, the field was confirmed or the refresh button clicked.
    void refreshRequested();
    // A row with an http(s) link was double-clicked.
    void linkActivated(const QUrl &url);

protected:
    void changeEvent(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void refillSelectors();
    void retranslate();

    QLabel *m_title = nullptr;
    QComboBox *m_source = nullptr;
    QComboBox *m_category = nullptr;
    QLineEdit *m_query = nullptr;
    QPushButton *m_refresh = nullptr;
    QTableWidget *m_table = nullptr;
};
