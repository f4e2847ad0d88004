// One stored photo, with the dialog that shares or deletes it.
import QtQuick
import QtQuick.Controls
import "components"

Page {
    id: page
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle { color: "black" }

    NavBar { id: bar; width: parent.width; backButton: o.backButton }
    KitButton { view: o.moreButton; anchors.right: parent.right; anchors.rightMargin: 8; y: 6; width: 44 }

    KitImage {
        view: o.imageView
        anchors.top: bar.bottom; anchors.bottom: banner.top
        anchors.left: parent.left; anchors.right: parent.right
        anchors.margins: 8
        fillMode: Image.PreserveAspectFit
    }

    Rectangle {
        visible: !!o.actionDialog && !o.actionDialog.hidden
        anchors.left: parent.left; anchors.right: parent.right; anchors.bottom: banner.top
        height: 150; radius: 20; color: "white"
        Column {
            anchors.fill: parent; anchors.margins: Theme.margin
            spacing: 10
            KitButton { view: o.closeDialogButton; anchors.right: parent.right; width: 40; height: 30 }
            Row {
                spacing: 12
                anchors.horizontalCenter: parent.horizontalCenter
                KitButton { view: o.shareButton; filled: true; width: 140; height: 48 }
                KitButton { view: o.deleteButton; width: 140; height: 48 }
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
