#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QSlider;

// Texts of the preferences window (table "PreferencesWindow").
namespace PreferencesWindowStrings {
// "Launch %@ at system startup" filled with the program's display name.
QString launchAtSystemStartup(const QString& displayName);
QString enableFinderIntegration();
QString finderIntegrationExplanation();
QString forceSwitchHiddenVisibility();
QString showInfo();
QString purgeAfterHugeAppQuit();
QString autoFree();
QString memoryUsageLimit();
QString frequency();
// The frequency pop-up's items in index order: 8 hours, 4 hours, 2 hours.
QStringList frequencyItems();
QString vision();
QStringList visionItems();
QString hiddenFilesSection();
QString memorySection();
QString generalSection();
} // namespace PreferencesWindowStrings

// The preferences window: the controls only. The controller fills them (QBPurgeController_Preferences.cpp)
// and acts on them; each control carries the controller's field name as its object name, so the
// controller's free-up code and tests find them. Signals come from the user's actions only (clicks,
// chosen items, slider moves), never from the controller's filling.
class PreferencesWindow : public QWidget
{
    Q_OBJECT
public:
    explicit PreferencesWindow(QWidget* parent = nullptr);

    QCheckBox* btnPrefAutoStart() const { return m_btnPrefAutoStart; }
    QCheckBox* enableFinderIntegrationButton() const { return m_enableFinderIntegrationButton; }
    QCheckBox* enableForceSwitchHiddenVisibilityButton() const { return m_enableForceSwitchHiddenVisibilityButton; }
    QCheckBox* btnPrefShowInfo() const { return m_btnPrefShowInfo; }
    QCheckBox* btnPrefPurgeAfterHugeAppQuit() const { return m_btnPrefPurgeAfterHugeAppQuit; }
    QCheckBox* btnPrefAutoFree() const { return m_btnPrefAutoFree; }
    QSlider* sldPrefMemUsage() const { return m_sldPrefMemUsage; }
    QComboBox* pupPrefFreq() const { return m_pupPrefFreq; }
    QLabel* txtPrefDesc() const { return m_txtPrefDesc; }
    QComboBox* visionComboBox() const { return m_visionComboBox; }

    // The slider in fractions of memory; setting it emits nothing.
    double memoryUsageFraction() const;
    void setMemoryUsageFraction(double fraction);

Q_SIGNALS:
    void launchAtStartupClicked(bool on);
    void finderIntegrationClicked(bool on);
    void forceSwitchHiddenVisibilityClicked(bool on);
    void showInfoClicked(bool on);
    void purgeAfterHugeApplicationQuitClicked(bool on);
    void autoFreeClicked(bool on);
    void memoryUsageChanged(double fraction);
    void frequencyChosen(int index);
    void visionChosen(int index);

private:
    void showUsageValue();

    QCheckBox* m_btnPrefAutoStart = nullptr;
    QCheckBox* m_enableFinderIntegrationButton = nullptr;
    QCheckBox* m_enableForceSwitchHiddenVisibilityButton = nullptr;
    QCheckBox* m_btnPrefShowInfo = nullptr;
    QCheckBox* m_btnPrefPurgeAfterHugeAppQuit = nullptr;
    QCheckBox* m_btnPrefAutoFree = nullptr;
    QSlider* m_sldPrefMemUsage = nullptr;
    QLabel* m_usageValue = nullptr;
    QComboBox* m_pupPrefFreq = nullptr;
    QLabel* m_txtPrefDesc = nullptr;
    QComboBox* m_visionComboBox = nullptr;
};
