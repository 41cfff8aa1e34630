#pragma once

#include <QGuiApplication>
#include <QScreen>
#include <QTimer>
#include <QWidget>

#include <cmath>

// Panels fed by streams change their state at once but draw at most once per frame of the screen
// they are on: a burst of frames between two refreshes costs one repaint.
inline int screenFrameIntervalMs(const QWidget *widget)
{
    const QScreen *screen = widget->screen() ? widget->screen() : QGuiApplication::primaryScreen();
    const qreal rate = screen ? screen->refreshRate() : 60.0;
    return rate >= 1.0 ? qBound(4, int(std::ceil(1000.0 / rate)), 50) : 16;
}

// A single-shot timer that runs `render` one frame after the first change since the last render.
class FrameRenderer : public QObject
{
public:
    FrameRenderer(QWidget *owner, std::function<void()> render)
        : QObject(owner)
        , m_owner(owner)
        , m_render(std::move(render))
    {
        m_timer.setSingleShot(true);
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout, this, [this] { m_render(); });
    }

    void schedule()
    {
        if (!m_timer.isActive())
            m_timer.start(screenFrameIntervalMs(m_owner));
    }
    bool isPending() const { return m_timer.isActive(); }
    // Renders now what is pending (the owner is about to be read, or a test looks at it).
    void flush()
    {
        if (!m_timer.isActive())
            return;
        m_timer.stop();
        m_render();
    }
    void cancel() { m_timer.stop(); }

private:
    QWidget *m_owner;
    std::function<void()> m_render;
    QTimer m_timer;
};
