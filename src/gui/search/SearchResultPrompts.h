#pragma once

#include <QString>
#include <QStringList>

#include <functional>

class QWidget;

// How the results window asks the user: questions as window-modal sheets, folder and file choices.
// Each answer arrives later through its callback; tests put their own answers in place.
struct SearchResultPrompts
{
    struct Question
    {
        QString title;
        QString text;
        QStringList buttons;         // the first is the default
        bool suppressionBox = false; // a "Do not show again" check box
        bool applicationIcon = false;
        bool warning = false;
    };
    // button: the index of the button pressed (-1 when closed otherwise); suppress: the box was ticked.
    using Answer = std::function<void(int button, bool suppress)>;

    std::function<void(QWidget* window, const Question&, Answer)> ask;
    // An empty path when cancelled.
    std::function<void(QWidget* window, const QString& message, const QString& prompt,
                       std::function<void(const QString& folder)>)>
        chooseFolder;
    // csv: the CSV table was chosen (else a list of paths).
    std::function<void(QWidget* window, std::function<void(const QString& file, bool csv)>)> chooseExportFile;

    // Real sheets and file dialogs.
    static SearchResultPrompts dialogs();
};
