#pragma once

#include <QDialog>

// Shown once, at the first start: what the tray icon and its panel do.
class WelcomeDialog : public QDialog
{
    Q_OBJECT
public:
    explicit WelcomeDialog(QWidget* parent = nullptr);
};
