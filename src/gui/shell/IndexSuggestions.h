#pragma once

// Suggestions from the name index under the panel's search field while the user types: up to ten
// names, best first (the name starts with the text, then shorter paths). Down and Up choose one;
// Enter opens it, Ctrl+Enter reveals it in the file manager; Return with none chosen goes to the
// field as before (the search starts). While the index is being built one line says "Indexing...".

#include <QByteArray>
#include <QObject>
#include <QPointer>

#include <functional>

class NameIndexKeeper;
class QLineEdit;
class QListWidget;
class QTimer;

class IndexSuggestions : public QObject
{
    Q_OBJECT

public:
    // keeper may be null (no index: nothing is suggested). folder gives the folder searched.
    IndexSuggestions(QLineEdit* field, NameIndexKeeper* keeper, std::function<QByteArray()> folder);
    ~IndexSuggestions() override;

    static constexpr int kShown = 10;
    QListWidget* list() const { return m_list; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void textEdited();
    void refresh();
    void show(const QList<QByteArray>& paths, bool indexing);
    void act(bool reveal);
    void hide();

    QPointer<QLineEdit> m_field;
    NameIndexKeeper* m_keeper;
    std::function<QByteArray()> m_folder;
    QListWidget* m_list = nullptr;
    QTimer* m_delay = nullptr;
    int m_generation = 0;
};
