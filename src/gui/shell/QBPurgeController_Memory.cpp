// Memory side of the controller: the panel's figures, the purge, and the automatic free-up preferences.
#include "QBPurgeController.h"

#include "CleanMemoryButton.h"
#include "PanelWindow.h"
#include "core/DesktopNotification.h"
#include "core/Settings.h"
#include "core/Texts.h"
#include "memory/MemoryFigures.h"
#include "memory/PurgeFrequency.h"
#include "memory/PurgeManager.h"
#include "memory/PurgeNotification.h"
#include "memory/PurgeScript.h"
#include "platform/MemoryInfo.h"
#include "util/DateExtra.h"
#include "util/MainQueue.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QHash>
#include <QLabel>
#include <QSlider>
#include <QSystemTrayIcon>
#include <QThreadPool>

#include <cstdio>
#include <mutex>

namespace {

// What the kernel's statistics call answers on failure.
constexpr int kKernFailure = 5;

MemoryInfo& memoryInfoOf(MemoryInfo* injected)
{
    return injected ? *injected : MemoryInfo::system();
}

PurgeManager& purgeManagerOf(PurgeManager* injected)
{
    return injected ? *injected : PurgeManager::GetInstance();
}

const QDateTime& referenceDate()
{
    static const QDateTime date(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);
    return date;
}

// Hands PurgeManager's callbacks to the controller. Created on the main thread before the first purge,
// a child of the controller; it unhooks itself from the manager when the controller goes.
class PurgeDelegateBridge final : public QObject, public PurgeManagerDelegate
{
public:
    PurgeDelegateBridge(QBPurgeController* controller, PurgeManager& manager)
        : QObject(controller)
        , m_controller(controller)
        , m_manager(manager)
    {
        std::lock_guard lock(registryMutex());
        registry().insert(controller, this);
    }
    ~PurgeDelegateBridge() override
    {
        m_manager.clearDelegate(this);
        std::lock_guard lock(registryMutex());
        registry().remove(m_controller);
    }

    // Any thread.
    static PurgeDelegateBridge* of(const QBPurgeController* controller)
    {
        std::lock_guard lock(registryMutex());
        return registry().value(controller);
    }

    void onPurgeManagerStartPurge() override { m_controller->onPurgeManagerStartPurge(); }
    void onPurgeManagerEndPurge() override { m_controller->onPurgeManagerEndPurge(); }
    void onPurgeManagerPurgingProgress(float progress) override
    {
        m_controller->onPurgeManagerPurgingProgress(progress);
    }

private:
    static std::mutex& registryMutex()
    {
        static std::mutex mutex;
        return mutex;
    }
    static QHash<const QBPurgeController*, PurgeDelegateBridge*>& registry()
    {
        static QHash<const QBPurgeController*, PurgeDelegateBridge*> bridges;
        return bridges;
    }

    QBPurgeController* m_controller;
    PurgeManager& m_manager;
};

// The preferences window's controls, found by name, so the figures reach it whenever it exists.
template <typename T> T* preferencesControl(const char* objectName)
{
    const QString name = QString::fromLatin1(objectName);
    for (QWidget* top : QApplication::topLevelWidgets()) {
        if (top->objectName() == name)
            return qobject_cast<T*>(top);
        if (T* control = top->findChild<T*>(name))
            return control;
    }
    return nullptr;
}

} // namespace

// --- Memory figures ---

void QBPurgeController::initMemoryValues()
{
    updateLastFreeLabel();
    const quint32 page = memoryInfoOf(m_memoryInfo).pageSize();
    if (page == 0) {
        std::fprintf(stderr, "getting page size\n");
        m_npagesize = 4096;
    } else {
        m_npagesize = page;
    }
    m_ncount = m_bUse64Statictics ? 38 : 15;
}

int QBPurgeController::updateMemoryStatictics()
{
    MemoryInfo& info = memoryInfoOf(m_memoryInfo);
    if (m_bUse64Statictics)
        return info.readStatistics(m_vmstat64) ? 0 : kKernFailure;
    // Older systems fill the 32-bit record, which the figures never read: they stay at 0 there.
    VmStatistics64 legacy;
    return info.readStatistics(legacy) ? 0 : kKernFailure;
}

quint64 QBPurgeController::calculateTotalSize() const
{
    return memoryInfoOf(m_memoryInfo).physicalMemory();
}

quint64 QBPurgeController::calculateTotalPages() const
{
    return calculateTotalSize() / m_npagesize;
}

quint64 QBPurgeController::calculateUsedPages() const
{
    return MemoryFigures::usedPagesOf(m_vmstat64);
}

quint64 QBPurgeController::calculateFreePages() const
{
    const quint64 total = calculateTotalPages();
    const quint64 used = calculateUsedPages();
    return total > used ? total - used : 0;
}

quint64 QBPurgeController::calculateFreeSize() const
{
    return calculateFreePages() * m_npagesize;
}

void QBPurgeController::fillInfoPanel()
{
    if (!m_wndInfo)
        return;
    const quint64 usedPages = calculateUsedPages();
    const quint64 totalPages = calculateTotalPages();
    const quint64 used = usedPages * m_npagesize;
    const quint64 free = calculateFreeSize();
    const double fraction = totalPages ? double(usedPages) / double(totalPages) : 0.0;
    m_wndInfo->fillInfoPanelWithUsedMemoryPercent(fraction, qint64(used), qint64(used + free));
}

void QBPurgeController::checkMemory(bool repeat)
{
    if (!m_bPurging && ((m_wndInfo && m_wndInfo->shouldUpdateTrackedSystemInfo()) || !m_bChecked)) {
        // A failing read ends the loop for the rest of the session; the last figures stay on screen.
        if (updateMemoryStatictics() != 0)
            return;
        fillInfoPanel();
        updateStatusItem();
        m_bChecked = true;
        checkAutoPurge();
    }
    if (repeat) {
        ++m_lTicksFromLastFree;
        m_checkMemoryCall.cancel(); // one loop, however often it is started
        m_checkMemoryCall = m_clock.callAfter(1000, this, [this] { checkMemory(true); });
    }
}

void QBPurgeController::updateLastFreeLabel()
{
    if (!m_wndInfo)
        return;
    const qint64 size = m_tLastFreeTime > 0 ? m_lLastPurgedSize : -1;
    const QDateTime when = referenceDate().addMSecs(qint64(m_tLastFreeTime * 1000.0)).toLocalTime();
    m_wndInfo->fillLastCleanedLabelWithSize(size,
                                            DateExtra::timeDescriptionIfSameDay(when, m_clock).value_or(QString()));
}

// --- Purge ---

void QBPurgeController::panelCleanButtonPressed()
{
    onFreeMemory(true);
}

void QBPurgeController::onFreeMemory(bool fromButton)
{
    if (m_bPurging)
        return;
    if (fromButton)
        m_handPurge = true;
    CleanMemoryButton* button = m_wndInfo ? m_wndInfo->cleanButton() : nullptr;
    if (button)
        button->beginProgressUpdate();
    m_bPurging = true;
    if (button) {
        button->setEnabled(false);
        button->setTitle(PanelWindowStrings::cleanButtonStateCleaning());
    }
    // The "before" figure: sampling pauses while the purge runs.
    updateMemoryStatictics();
    if (!PurgeDelegateBridge::of(this))
        new PurgeDelegateBridge(this, purgeManagerOf(m_purgeManager));
    QThreadPool::globalInstance()->start([this] { onTaskPurge(); });
}

void QBPurgeController::onTaskPurge()
{
    if (!m_bIsOSXMavericksOrHigher) {
        const bool success = PurgeScript::run();
        MainQueue::async(this, [this, success] { notifyPurged(success); });
        return;
    }
    PurgeManager& manager = purgeManagerOf(m_purgeManager);
    manager.setDelegate(PurgeDelegateBridge::of(this));
    manager.purgeWithCompletion([this] { MainQueue::async(this, [this] { notifyPurged(true); }); });
}

void QBPurgeController::notifyPurged(bool success)
{
    m_bPurging = false;
    if (CleanMemoryButton* button = m_wndInfo ? m_wndInfo->cleanButton() : nullptr) {
        button->setEnabled(true);
        button->setTitle(PanelWindowStrings::cleanButtonStateReadyForCleanUp());
        button->endProgressUpdate();
    }
    if (success) {
        // The sample taken when the purge began is the "before" figure.
        const VmStatistics64 before = m_vmstat64;
        updateMemoryStatictics();
        const quint64 cleaned = MemoryFigures::cleanedSize(before, m_vmstat64, m_npagesize);
        if (cleaned > 0) {
            m_lLastPurgedSize = qint64(cleaned);
            m_tLastFreeTime = double(referenceDate().msecsTo(m_clock.now())) / 1000.0;
            m_lTicksFromLastFree = 0;
            updateLastFreeLabel();
            m_settings.setCleanedSize(m_settings.cleanedSize() + quint64(m_lLastPurgedSize));
            showIfNeededNotificationWithCleanSize(m_lLastPurgedSize);
            if (m_wndInfo)
                m_wndInfo->onPurgedMemory();
            m_handPurge = false;
        }
    }
    checkMemory(false);
}

void QBPurgeController::showIfNeededNotificationWithCleanSize(qint64 size)
{
    // Dormant: nothing sets the flag, so no notice is ever shown; the path is kept for when it is.
    if (m_showNotificationAfterPurge && PurgeNotification::isWorthShowing(size)) {
        const QString title = PurgeNotification::title();
        const QString body = PurgeNotification::text(m_lLastPurgedSize);
        if (!DesktopNotification::send(title, body) && m_statusItem)
            m_statusItem->showMessage(title, body);
    }
    m_showNotificationAfterPurge = false;
}

void QBPurgeController::checkAutoPurge()
{
    // Automatic free-up is stored and described but never runs by itself.
}

void QBPurgeController::onPurgeManagerStartPurge()
{
}

void QBPurgeController::onPurgeManagerEndPurge()
{
}

void QBPurgeController::onPurgeManagerPurgingProgress(float progress)
{
    if (CleanMemoryButton* button = m_wndInfo ? m_wndInfo->cleanButton() : nullptr)
        button->setProgess(progress);
}

// --- Automatic free-up preferences ---

void QBPurgeController::initPurgeFreq()
{
    m_lPurgeFreq = PurgeFrequency::interval(m_settings.defaults(), m_nFreq, m_lPurgeFreq);
}

QString QBPurgeController::prefDescription() const
{
    if (!m_bAutoFree)
        return QStringLiteral("*Check on to free up system memory automatically.");
    const QString every = m_nFreq == 0 ? QStringLiteral("8 hours")
                                       : (m_nFreq == 1 ? QStringLiteral("4 hours") : QStringLiteral("2 hours"));
    QString text = QStringLiteral("*Free up automatically every %@ if memory is used on %d%c and if CPU usage is "
                                  "less than 20%c.");
    text.replace(QStringLiteral("%@"), every);
    text.replace(QStringLiteral("%d"), QString::number(int(m_dUsageLimit * 100.0)));
    text.replace(QStringLiteral("%c"), QStringLiteral("%"));
    return text;
}

void QBPurgeController::updatePrefDesc()
{
    if (QLabel* description = preferencesControl<QLabel>("txtPrefDesc"))
        description->setText(prefDescription());
}

void QBPurgeController::onPrefAutoFree(bool on)
{
    m_bAutoFree = on;
    if (QSlider* usage = preferencesControl<QSlider>("sldPrefMemUsage"))
        usage->setEnabled(on);
    if (QComboBox* frequency = preferencesControl<QComboBox>("pupPrefFreq"))
        frequency->setEnabled(on);
    m_settings.defaults().setObject(on, SettingsKey::AutoFree);
    m_settings.defaults().synchronize();
    updatePrefDesc();
}

void QBPurgeController::onPrefMemUsage(double fraction)
{
    m_dUsageLimit = fraction;
    updatePrefDesc();
    m_settings.defaults().setObject(fraction, SettingsKey::UsageLimit);
}

void QBPurgeController::onPrefFreq(int index)
{
    m_nFreq = index;
    initPurgeFreq();
    updatePrefDesc();
    m_settings.defaults().setObject(index, SettingsKey::Frequency);
}

void QBPurgeController::onPrefPurgeAfterHugeApplicationQuit(bool on)
{
    m_bPrefPurgeAfterHugeAppQuit = on;
    m_settings.defaults().setObject(on, SettingsKey::PurgeAfterHugeAppQuit);
    m_settings.defaults().synchronize();
}

void QBPurgeController::onPrefShowInfo(bool on)
{
    m_bShowInfo = on;
    if (m_wndInfo) {
        if (on && !m_wndInfo->isVisible())
            statusItemAction();
        else if (!on && m_wndInfo->isVisible())
            m_wndInfo->close();
    }
    saveShowInfoState();
}

void QBPurgeController::turnOnAutoStartAndAutoFree()
{
    if (QAbstractButton* box = preferencesControl<QAbstractButton>("btnPrefAutoFree"))
        box->setChecked(true);
    onPrefAutoFree(true);
}
