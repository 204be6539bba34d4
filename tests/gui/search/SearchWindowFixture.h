#pragma once

// A results window over its own search manager, settings, file-operation scripts and preview, with
// prompts that record each question and answer it as a sheet would (on the next turn of the event loop).

#include "gui/search/QuickLookController.h"
#include "gui/search/SearchResultModel.h"
#include "gui/search/SearchResultWC.h"
#include "search/FinderCommunicator.h"
#include "search/SearchManager.h"
#include "support/SettingsFixture.h"

#include <QSignalSpy>
#include <QTableView>
#include <QtTest>

#include <memory>

struct FakePrompts
{
    struct Answer
    {
        int button = 0;
        bool suppress = false;
    };
    QList<SearchResultPrompts::Question> asked;
    // By default the first button; a test may answer per question.
    std::function<Answer(const SearchResultPrompts::Question&)> answer = [](const auto&) { return Answer{}; };
    QString folder; // the folder "chosen" in a folder dialog; empty: cancelled
    QStringList folderPrompts;
    QString exportFile;
    bool exportCsv = true;

    QStringList titles() const
    {
        QStringList out;
        for (const auto& q : asked)
            out.append(q.title);
        return out;
    }

    SearchResultPrompts prompts()
    {
        SearchResultPrompts p;
        p.ask = [this](QWidget*, const SearchResultPrompts::Question& q, SearchResultPrompts::Answer done) {
            asked.append(q);
            const Answer a = answer(q);
            QTimer::singleShot(0, [done, a] { done(a.button, a.suppress); });
        };
        p.chooseFolder = [this](QWidget*, const QString&, const QString& prompt,
                                std::function<void(const QString&)> done) {
            folderPrompts.append(prompt);
            const QString chosen = folder;
            QTimer::singleShot(0, [done, chosen] { done(chosen); });
        };
        p.chooseExportFile = [this](QWidget*, std::function<void(const QString&, bool)> done) {
            const QString file = exportFile;
            const bool csv = exportCsv;
            QTimer::singleShot(0, [done, file, csv] { done(file, csv); });
        };
        return p;
    }
};

struct SearchWindowFixture
{
    SearchWindowFixture()
    {
        SearchResultWC::resetSortDirections();
        makeWindow();
    }

    // A new window (over the same lists), with a hidden-files manager or none.
    void makeWindow(HiddenManager* hidden = nullptr)
    {
        window.reset();
        SearchResultWC::Collaborators c;
        c.hiddenManager = hidden;
        c.searchManager = &manager;
        c.settings = &settings.settings;
        c.center = &settings.center;
        c.communicator = &communicator;
        c.quickLook = &quickLook;
        c.prompts = fake.prompts();
        c.setStatusToolTip = [this](const QString& tip) { toolTips.append(tip); };
        c.openUrl = [this](const QUrl& url) {
            opened.append(url);
            return true;
        };
        c.showItems = [this](const QList<QByteArray>& paths, std::function<void(bool)> answered) {
            revealed.append(paths);
            answered(fileManagerAnswers);
        };
        c.showItemProperties = [this](const QList<QByteArray>& paths, std::function<void(bool)> answered) {
            properties.append(paths);
            answered(fileManagerAnswers);
        };
        window = std::make_unique<SearchResultWC>(std::move(c));
    }

    // Runs a search through the window's manager and waits for its end.
    void search(const QString& text, const QByteArray& folder)
    {
        QSignalSpy finished(&manager, &SearchManager::searchFinished);
        QCOMPARE(manager.performSearchWithTemplate(text, QFile::decodeName(folder)),
                 SearchManager::StartResult::Started);
        QVERIFY(finished.wait(20000));
        manager.waitForPackageSizes();
        QCoreApplication::processEvents();
    }

    QStringList shownNames() const
    {
        QStringList names;
        for (int row = 0; row < window->model()->rowCount(); ++row)
            names.append(window->model()->index(row, SearchResultModel::NameColumn).data().toString());
        return names;
    }
    int rowOf(const QString& name) const { return static_cast<int>(shownNames().indexOf(name)); }
    void select(const QStringList& names)
    {
        QList<int> rows;
        for (const QString& name : names) {
            const int row = rowOf(name);
            QVERIFY2(row >= 0, qPrintable(name));
            rows.append(row);
        }
        window->selectRows(rows);
    }

    SettingsFixture settings;
    QTemporaryDir scripts;
    SearchManager manager{settings.center};
    FinderCommunicator communicator{scripts.path(), [] { return true; }};
    QuickLookController quickLook{settings.center};
    FakePrompts fake;
    QStringList toolTips;
    QList<QUrl> opened;
    QList<QList<QByteArray>> revealed;
    QList<QList<QByteArray>> properties;
    bool fileManagerAnswers = true;
    std::unique_ptr<SearchResultWC> window;
};
