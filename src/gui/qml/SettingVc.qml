// The settings: seven rows, the first with the passcode switch.
import QtQuick
import QtQuick.Controls
import "components"

Page {
    id: page
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle { color: "white" }

    NavBar { id: bar; width: parent.width; backButton: o.crossButton; titleLabel: o.titleLbl }

    KitTable {
        id: table
        view: o.tableView
        anchors.top: bar.bottom
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: banner.top
        cellDelegate: Component {
            Rectangle {
                readonly property var c: cell ? cell.outlets : ({})
                color: rowMouse.pressed ? "#DCE9FB" : "white"
                MouseArea { id: rowMouse; anchors.fill: parent; onClicked: table.view.model.select(rowIndex) }
                Rectangle { anchors.bottom: parent.bottom; anchors.left: parent.left; anchors.leftMargin: Theme.margin; anchors.right: parent.right; height: 1; color: "#ECEEF2" }
                Rectangle {
                    id: badge
                    width: 40; height: 40; radius: 10
                    color: Theme.card
                    anchors.left: parent.left; anchors.leftMargin: Theme.margin
                    anchors.verticalCenter: parent.verticalCenter
                    KitImage { view: c.nameIcon; anchors.fill: parent; anchors.margins: 8 }
                }
                KitLabel {
                    view: c.nameLbl
                    font.pixelSize: 17
                    anchors.left: badge.right; anchors.leftMargin: 14
                    anchors.verticalCenter: parent.verticalCenter
                }
                Switch {
                    visible: !!c.usePasscodeSwitch && !c.usePasscodeSwitch.hidden
                    checked: c.usePasscodeSwitch ? c.usePasscodeSwitch.on : false
                    anchors.right: parent.right; anchors.rightMargin: 12
                    anchors.verticalCenter: parent.verticalCenter
                    onToggled: c.usePasscodeSwitch.toggle()
                }
            }
        }
    }

    BannerSlot {
        id: banner
        view: o.adsView
        heightConstraint: o.adsViewHeightConstraint
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: parent.bottom
    }
}
