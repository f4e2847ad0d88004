// The interlude before home: a quiet page while the launch's ad is fetched, with a close
// button that comes up after a few seconds.
import QtQuick
import QtQuick.Controls
import "components"

Page {
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle { color: "#10131A" }
    BusyIndicator {
        anchors.centerIn: parent
        running: true
        palette.dark: "white"
        width: 56; height: 56
    }
    KitButton {
        view: o.crossButton
        anchors.top: parent.top; anchors.right: parent.right
        anchors.margins: 16
        width: 44; height: 44
        radius: 22
        color: "#33FFFFFF"
    }
}
