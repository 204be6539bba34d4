#pragma once

#include <QDialog>

// The about window: icon, name, version and what the program is.
class AboutWindow : public QDialog
{
    Q_OBJECT
public:
    explicit AboutWindow(QWidget* parent = nullptr);
};
