// An animation view: the named animation file of the app's assets, looping as the kit says,
// scaled to fit the holder.
import QtQuick
import Qt.labs.lottieqt

Item {
    id: root
    property var view
    // The animations are drawn on a 200 by 200 canvas.
    readonly property real canvas: 200
    visible: !!view && !view.hidden && view.animationName.length > 0
    LottieAnimation {
        id: animation
        width: root.canvas
        height: root.canvas
        anchors.centerIn: parent
        scale: Math.min(root.width, root.height) / root.canvas
        source: root.view && root.view.animationName.length > 0 ? "qrc:/assets/animations/" + root.view.animationName + ".json" : ""
        loops: root.view && root.view.looping ? LottieAnimation.Infinite : 1
        autoPlay: true
        onStatusChanged: if (status === LottieAnimation.Ready && root.view && root.view.playing) start()
    }
}
