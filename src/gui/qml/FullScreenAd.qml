// A presented full-screen ad (interstitial or app-open): the creative and a close button.
import QtQuick
import "components"

Rectangle {
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    color: "#101820"
    MouseArea { anchors.fill: parent }
    KitImage {
        view: o.adImageView
        anchors.fill: parent
        anchors.margins: 24
        anchors.topMargin: 80
    }
    KitLabel {
        view: o.adTitleLabel
        color: "white"
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.top: parent.top
        anchors.topMargin: 40
        font.pixelSize: 18
    }
    Text { text: "Ad"; color: "#AAAAAA"; font.pixelSize: 12; anchors.left: parent.left; anchors.top: parent.top; anchors.margins: 16 }
    Rectangle {
        width: 36; height: 36; radius: 18
        color: "#CCFFFFFF"
        anchors.right: parent.right; anchors.top: parent.top; anchors.margins: 14
        Text { anchors.centerIn: parent; text: "\u2715"; font.pixelSize: 18 }
        MouseArea { anchors.fill: parent; onClicked: o.closeButton.tap() }
    }
}
