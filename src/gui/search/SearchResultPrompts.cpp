#include "SearchResultPrompts.h"

#include "SearchResultStrings.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

SearchResultPrompts SearchResultPrompts::dialogs()
{
    SearchResultPrompts prompts;
    prompts.ask = [](QWidget* window, const Question& question, Answer answer) {
        auto* box = new QMessageBox(window);
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->setWindowModality(window ? Qt::WindowModal : Qt::ApplicationModal);
        box->setText(question.title);
        box->setInformativeText(question.text);
        if (question.applicationIcon && !QApplication::windowIcon().isNull())
            box->setIconPixmap(QApplication::windowIcon().pixmap(64, 64));
        else
            box->setIcon(question.warning ? QMessageBox::Warning : QMessageBox::Question);
        QList<QAbstractButton*> buttons;
        for (qsizetype i = 0; i < question.buttons.size(); ++i) {
            const QMessageBox::ButtonRole role =
                i == 0 ? QMessageBox::AcceptRole : (i == 1 ? QMessageBox::RejectRole : QMessageBox::ActionRole);
            QPushButton* button = box->addButton(question.buttons.at(i), role);
            if (i == 0)
                box->setDefaultButton(button);
            buttons.append(button);
        }
        if (question.buttons.size() > 1)
            box->setEscapeButton(buttons.at(1));
        if (question.suppressionBox)
            box->setCheckBox(new QCheckBox(SearchResultStrings::text("Do_not_show_again", "Do not show again"), box));
        QObject::connect(box, &QMessageBox::finished, box, [box, buttons, answer](int) {
            const int index = static_cast<int>(buttons.indexOf(box->clickedButton()));
            answer(index, box->checkBox() && box->checkBox()->isChecked());
        });
        box->open();
    };
    prompts.chooseFolder = [](QWidget* window, const QString& message, const QString& prompt,
                              std::function<void(const QString&)> chosen) {
        auto* dialog = new QFileDialog(window, message, QDir::homePath());
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->setWindowModality(window ? Qt::WindowModal : Qt::ApplicationModal);
        dialog->setFileMode(QFileDialog::Directory);
        dialog->setOption(QFileDialog::ShowDirsOnly, true);
        dialog->setLabelText(QFileDialog::Accept, prompt);
        QObject::connect(dialog, &QFileDialog::finished, dialog, [dialog, chosen](int result) {
            const QStringList files = dialog->selectedFiles();
            chosen(result == QDialog::Accepted && !files.isEmpty() ? files.first() : QString());
        });
        dialog->open();
    };
    prompts.chooseExportFile = [](QWidget* window, std::function<void(const QString&, bool)> chosen) {
        const QString csvFilter = SearchResultStrings::text("Export_filter_csv", "CSV table (*.csv)");
        const QString pathsFilter = SearchResultStrings::text("Export_filter_paths", "List of paths (*.txt)");
        auto* dialog = new QFileDialog(window, SearchResultStrings::text("Export_title", "Export Search Results"),
                                       QDir::homePath());
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->setWindowModality(window ? Qt::WindowModal : Qt::ApplicationModal);
        dialog->setAcceptMode(QFileDialog::AcceptSave);
        dialog->setNameFilters({csvFilter, pathsFilter});
        dialog->setDefaultSuffix(QStringLiteral("csv"));
        QObject::connect(dialog, &QFileDialog::filterSelected, dialog, [dialog, csvFilter](const QString& filter) {
            dialog->setDefaultSuffix(filter == csvFilter ? QStringLiteral("csv") : QStringLiteral("txt"));
        });
        QObject::connect(dialog, &QFileDialog::finished, dialog, [dialog, chosen, csvFilter](int result) {
            const QStringList files = dialog->selectedFiles();
            if (result == QDialog::Accepted && !files.isEmpty())
                chosen(files.first(), dialog->selectedNameFilter() == csvFilter);
        });
        dialog->open();
    };
    return prompts;
}
