#pragma once

#include <QDialog>

#include <functional>

class QLabel;
class QPushButton;

// The one-time explanation shown before the first switch, as a window-modal sheet on the panel.
// "Grant Access" ends it with 1000, "Cancel" with 1001; any other way of closing it gives 0. "Read More"
// opens the help and leaves the sheet up.
class InformationAboutAccessAlertsWC : public QDialog
{
    Q_OBJECT
public:
    static constexpr int kGrantAccessCode = 1000;
    static constexpr int kCancelCode = 1001;

    InformationAboutAccessAlertsWC(QWidget* parent, std::function<void()> readMore);

    void onGrantAccessClicked();
    void onCancelClicked();
    void onReadMoreClicked();

private:
    void windowDidLoad();

    std::function<void()> m_readMore;
    QLabel* m_title = nullptr;
    QLabel* m_message = nullptr;
    QLabel* m_preferencesIcon = nullptr;
    QPushButton* m_grantAccessButton = nullptr;
    QPushButton* m_cancelButton = nullptr;
    QPushButton* m_readMoreButton = nullptr;
};
