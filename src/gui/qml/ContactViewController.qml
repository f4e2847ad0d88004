// The contact card: the picture, the name and the numbers with their labels, read only.
import QtQuick
import QtQuick.Controls
import "components"

Page {
    id: page
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle { color: "white" }

    NavBar { id: bar; width: parent.width; backButton: o.closeButton; titleLabel: o.titleLbl }
    Column {
        anchors.top: bar.bottom; anchors.topMargin: 24
        width: parent.width
        spacing: 12
        KitImage { view: o.cardImg; width: 96; height: 96; anchors.horizontalCenter: parent.horizontalCenter }
        KitLabel { view: o.cardNameLbl; font.pixelSize: 22; font.weight: Font.Bold; anchors.horizontalCenter: parent.horizontalCenter }
        Repeater {
            model: 8
            delegate: Column {
                x: Theme.margin
                visible: !!o["phoneNumberLbl" + index]
                KitLabel { view: o["phoneLabelLbl" + index]; font.pixelSize: 13; color: Theme.secondaryText }
                KitLabel { view: o["phoneNumberLbl" + index]; font.pixelSize: 18; color: Theme.accent }
            }
        }
    }
}
