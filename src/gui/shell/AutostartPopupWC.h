#pragma once

#include <QWidget>

class NotificationCenter;
class QLabel;
class QPushButton;
class Settings;

// The start-at-login offer after a purge: "You have cleaned <size> of memory." with yes and no.
// Yes asks for start at login and automatic free-up; no stops the offer for good. Nothing opens it yet.
class AutostartPopupWC : public QWidget
{
    Q_OBJECT
public:
    AutostartPopupWC(Settings& settings, NotificationCenter& center, QWidget* parent = nullptr);

    void setCleanedSize(qint64 bytes);
    QString messageText() const;

    void yesPressed();
    void noPressed();

private:
    Settings& m_settings;
    NotificationCenter& m_center;
    QLabel* m_message = nullptr;
    QPushButton* m_yes = nullptr;
    QPushButton* m_no = nullptr;
};
