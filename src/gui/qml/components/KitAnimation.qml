// An animation view: the named animation file of the app's assets, looping as the kit says.
import QtQuick
import Qt.labs.lottieqt

LottieAnimation {
    property var view
    visible: !!view && !view.hidden && view.animationName.length > 0
    source: view && view.animationName.length > 0 ? "qrc:/assets/animations/" + view.animationName + ".json" : ""
    loops: view && view.looping ? LottieAnimation.Infinite : 1
    autoPlay: true
    onStatusChanged: if (status === LottieAnimation.Ready && view && view.playing) start()
}
