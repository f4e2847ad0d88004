// The secret space: the looping animation, the two tiles and the offers to set a PIN or a
// security answer.
import QtQuick
import QtQuick.Controls
import "components"

Page {
    id: page
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle { color: "white" }

    NavBar { id: bar; width: parent.width; backButton: o.backButton; titleLabel: o.titleLbl }

    Item {
        id: stage
        anchors.top: bar.bottom
        anchors.left: parent.left; anchors.right: parent.right
        height: 230
        Repeater {
            model: o.secretSpaceView ? o.secretSpaceView.subviews : []
            delegate: KitAnimation { view: modelData; anchors.fill: parent }
        }
    }

    Row {
        id: tiles
        anchors.top: stage.bottom; anchors.topMargin: 12
        anchors.horizontalCenter: parent.horizontalCenter
        spacing: 16
        Repeater {
            model: [
                { tile: "secretFiles", label: "secretFilesLbl", icon: "photos" },
                { tile: "secrectContactView", label: "secretContactLbl", icon: "vault" }
            ]
            delegate: Rectangle {
                width: (page.width - 2 * Theme.margin - 16) / 2
                height: 150
                radius: 18
                visible: !!o[modelData.tile] && !o[modelData.tile].hidden
                color: tileMouse.pressed ? "#DCE9FB" : Theme.card
                Column {
                    anchors.centerIn: parent
                    spacing: 12
                    Image { source: "image://kit/named/" + modelData.icon; width: 52; height: 52; anchors.horizontalCenter: parent.horizontalCenter; fillMode: Image.PreserveAspectFit }
                    KitLabel { view: o[modelData.label]; font.pixelSize: 17; font.weight: Font.DemiBold; anchors.horizontalCenter: parent.horizontalCenter }
                }
                MouseArea { id: tileMouse; anchors.fill: parent; onClicked: o[modelData.tile].tap() }
            }
        }
    }

    Column {
        anchors.top: tiles.bottom; anchors.topMargin: 24
        anchors.left: parent.left; anchors.right: parent.right
        anchors.leftMargin: Theme.margin; anchors.rightMargin: Theme.margin
        spacing: 10
        KitButton { view: o.showLockBtn; filled: true; width: parent.width; height: 50 }
        KitButton { view: o.securityButton; width: parent.width }
    }

    BannerSlot {
        view: o.adsView
        heightConstraint: o.adHeightConstraint
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: parent.bottom
    }
}
