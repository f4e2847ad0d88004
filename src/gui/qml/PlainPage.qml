// A screen that has no drawing of its own yet: its title, a message and a way back.
import QtQuick
import QtQuick.Controls
import "components"

Page {
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle { color: "white" }
    NavBar {
        id: bar
        width: parent.width
        backButton: o.backButton
        titleLabel: o.titleLbl
        fallbackTitle: screen ? screen.identifier : ""
    }
    KitLabel {
        view: o.messageLbl
        anchors.centerIn: parent
        width: parent.width - 60
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
        color: Theme.secondaryText
    }
}
