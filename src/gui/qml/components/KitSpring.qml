// A translation that plays a kit view's spring animations: each time the kit records one, the
// item jumps to the offset the view came from and springs back to its place with the
// recorded duration, delay and damping. Use as `transform: KitSpring { view: o.someView }`.
import QtQuick

Translate {
    id: root
    property var view
    readonly property var spring: view ? view.transformAnimation : null
    readonly property int serial: spring ? spring.serial : 0

    onSerialChanged: {
        if (serial === 0) return
        run.stop()
        wait.duration = spring.delay * 1000
        back.duration = Math.max(1, spring.duration * 1000)
        // Less damping, more overshoot: the elastic curve's period follows the damping.
        back.easing.period = Math.max(0.1, Math.min(1.0, spring.damping + 0.1))
        root.x = spring.fromX
        root.y = spring.fromY
        run.start()
    }

    property SequentialAnimation run: SequentialAnimation {
        PauseAnimation { id: wait }
        ParallelAnimation {
            NumberAnimation { id: back; target: root; property: "x"; to: 0; easing.type: Easing.OutElastic; easing.amplitude: 1.0 }
            NumberAnimation { target: root; property: "y"; to: 0; duration: back.duration; easing: back.easing }
        }
    }
}
