// The hidden files: the grid of the folder, the empty state, the option bar of selection
// mode and the chooser of a source (camera or gallery).
import QtQuick
import QtQuick.Controls
import "components"

Page {
    id: page
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle { color: "white" }

    NavBar { id: bar; width: parent.width; backButton: o.backButton; titleLabel: o.titleLbl }
    KitButton { view: o.securityButton; anchors.right: parent.right; anchors.rightMargin: 8; y: 6; width: 44 }

    Row {
        id: counts
        anchors.top: bar.bottom; anchors.topMargin: 6
        anchors.left: parent.left; anchors.leftMargin: Theme.margin
        spacing: 16
        KitLabel { view: o.totalLbl; font.pixelSize: 15; font.weight: Font.DemiBold; anchors.verticalCenter: parent.verticalCenter }
        KitLabel { view: o.selectedLbl; visible: !!o.optionView && !o.optionView.hidden; font.pixelSize: 15; color: Theme.accent; anchors.verticalCenter: parent.verticalCenter }
    }
    KitButton {
        view: o.selectAllBtn
        anchors.right: parent.right; anchors.rightMargin: Theme.margin
        anchors.verticalCenter: counts.verticalCenter
    }

    KitGrid {
        id: grid
        view: o.galleryCollectionView
        anchors.top: counts.bottom; anchors.topMargin: 10
        anchors.left: parent.left; anchors.right: parent.right
        anchors.leftMargin: 4; anchors.rightMargin: 4
        anchors.bottom: bottomBar.top
        itemDelegate: Component {
            Item {
                readonly property var t: cell ? cell.outlets : ({})
                Rectangle {
                    anchors.fill: parent; anchors.margins: 2
                    radius: 8; clip: true; color: Theme.card
                    KitImage { view: t.thumbNailImage; anchors.fill: parent; fillMode: Image.PreserveAspectCrop }
                    Rectangle {
                        visible: !!t.itemTypeView && !t.itemTypeView.hidden
                        width: 30; height: 30; radius: 15; color: "#99000000"
                        anchors.centerIn: parent
                        Text { text: "\u25B6"; color: "white"; anchors.centerIn: parent; font.pixelSize: 14 }
                    }
                    KitImage { view: t.selectedImage; width: 24; height: 24; anchors.right: parent.right; anchors.top: parent.top; anchors.margins: 6 }
                    MouseArea {
                        anchors.fill: parent
                        pressAndHoldInterval: 200
                        onClicked: if (cell) listModel.select(itemIndex)
                        onPressAndHold: function (mouse) {
                            if (!t.thumbNailImage) return
                            t.thumbNailImage.longPress(1, mouse.x, mouse.y)
                            t.thumbNailImage.longPress(3, mouse.x, mouse.y)
                        }
                    }
                }
            }
        }
    }

    Column {
        anchors.centerIn: parent
        width: parent.width - 60
        spacing: 12
        visible: !!o.nofileLbl && !o.nofileLbl.hidden
        KitImage { view: o.noFileImage; width: 110; height: 110; anchors.horizontalCenter: parent.horizontalCenter }
        KitLabel { view: o.nofileLbl; width: parent.width; horizontalAlignment: Text.AlignHCenter; font.pixelSize: 20; font.weight: Font.Bold }
        KitLabel { view: o.addNewLbl; width: parent.width; horizontalAlignment: Text.AlignHCenter; color: Theme.secondaryText; wrapMode: Text.WordWrap }
    }

    Item {
        id: bottomBar
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: banner.top
        height: 76
        KitButton { view: o.addNewBtn; filled: true; anchors.centerIn: parent; width: parent.width - 2 * Theme.margin; height: 50 }
        Rectangle {
            anchors.fill: parent
            visible: !!o.optionView && !o.optionView.hidden
            color: Theme.card
            radius: 20
            Row {
                anchors.centerIn: parent
                spacing: 18
                KitButton { view: o.deleteButton; width: 110 }
                KitButton { view: o.shareButton; width: 110 }
                KitButton { view: o.closeOptionButton; width: 44 }
            }
        }
    }

    // The choice of a source.
    Rectangle {
        anchors.fill: parent
        color: "#66000000"
        visible: !!o.customDialogView && !o.customDialogView.hidden
        z: 5
        MouseArea { anchors.fill: parent }
        Rectangle {
            anchors.left: parent.left; anchors.right: parent.right; anchors.bottom: parent.bottom
            height: 210; radius: 20; color: "white"
            Column {
                anchors.fill: parent; anchors.margins: Theme.margin
                spacing: 12
                Item {
                    width: parent.width; height: 30
                    KitLabel { view: o.chooserLbl; font.pixelSize: 18; font.weight: Font.DemiBold; anchors.verticalCenter: parent.verticalCenter }
                    KitButton { view: o.closeDialogButton; anchors.right: parent.right; width: 40 }
                }
                KitButton { view: o.cameraButton; width: parent.width; height: 50 }
                KitButton { view: o.galleryButton; filled: true; width: parent.width; height: 50 }
            }
        }
    }

    BannerSlot {
        id: banner
        view: o.adsView
        heightConstraint: o.adHeightConstraint
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: parent.bottom
    }
}
