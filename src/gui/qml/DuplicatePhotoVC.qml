// The scan screen: permission, the find prompt, scanning, and the results or the empty
// message. Every panel's visibility and text come from the kit.
import QtQuick
import QtQuick.Controls
import "components"

Page {
    id: page
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle { color: "white" }

    NavBar {
        id: bar
        width: parent.width
        backButton: o.backButton
        titleLabel: o.headingLbl
        rightButton: o.totalSelectBtn
    }

    Row {
        id: counters
        anchors.top: bar.bottom
        anchors.left: parent.left; anchors.leftMargin: Theme.margin
        spacing: 6
        KitLabel { view: o.totalSelectedLbl; color: Theme.secondaryText }
        KitLabel { view: o.duplicatePhotoCount; font.weight: Font.Bold; color: Theme.accent }
    }

    KitTable {
        id: table
        objectName: "resultsTable"
        view: o.tableView
        anchors.top: counters.bottom; anchors.topMargin: 8
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: cleanBar.top
        cellDelegate: Component {
            Rectangle {
                readonly property var c: cell ? cell.outlets : ({})
                color: "white"
                KitLabel { view: c.headerCell; x: Theme.margin; y: 8; font.pixelSize: 14; color: Theme.secondaryText }
                KitButton { view: c.crossSectionButton; anchors.right: deleteButton.left; y: 0 }
                KitButton { id: deleteButton; view: c.sectionDelete; anchors.right: parent.right; anchors.rightMargin: 8; y: 0 }
                KitStrip {
                    view: c.collectionView
                    x: 8; y: 36
                    width: parent.width - 16
                    height: 136
                    itemDelegate: Component {
                        Rectangle {
                            readonly property var t: cell ? cell.outlets : ({})
                            color: Theme.card
                            radius: 10
                            clip: true
                            KitImage { view: t.photosCollectionView; anchors.fill: parent; fillMode: Image.PreserveAspectCrop }
                            KitImage { view: t.videoImage; width: 22; height: 22; anchors.left: parent.left; anchors.bottom: parent.bottom; anchors.margins: 6 }
                            KitButton { view: t.checkButton; anchors.right: parent.right; anchors.top: parent.top }
                            MouseArea { anchors.fill: parent; z: -1; onClicked: if (cell) listModel.select(itemIndex) }
                        }
                    }
                }
                Rectangle { width: parent.width; height: 1; color: "#EEEEEE"; anchors.bottom: parent.bottom }
            }
        }
    }

    // The empty or permission message.
    Column {
        anchors.centerIn: parent
        width: parent.width - 60
        spacing: 14
        KitImage { view: o.noPhotoImageView; width: 120; height: 120; anchors.horizontalCenter: parent.horizontalCenter }
        KitLabel { view: o.duplicatetext; width: parent.width; horizontalAlignment: Text.AlignHCenter; font.pixelSize: 20; font.weight: Font.Bold }
        KitLabel { view: o.noImageLabel; width: parent.width; horizontalAlignment: Text.AlignHCenter; color: Theme.secondaryText; wrapMode: Text.WordWrap }
        KitButton { view: o.allowBtnOutlet; filled: true; width: parent.width; anchors.horizontalCenter: parent.horizontalCenter }
    }

    KitPanel {
        id: cleanBar
        view: o.cleanButtonView
        height: o.cleanHeightConstraint ? o.cleanHeightConstraint.constant + (visible ? 16 : 0) : 0
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: banner.top
        KitButton {
            view: o.cleanButton
            filled: true
            anchors.fill: parent
            anchors.leftMargin: Theme.margin; anchors.rightMargin: Theme.margin; anchors.bottomMargin: 12
        }
    }

    BannerSlot {
        id: banner
        view: o.bannerAdsView
        heightConstraint: o.bannerAdsViewHeight
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: parent.bottom
    }

    // Scanning.
    KitPanel {
        view: o.scanningView
        anchors.fill: parent
        anchors.topMargin: bar.height
        color: "white"
        Column {
            anchors.centerIn: parent
            width: parent.width - 60
            spacing: 12
            Item {
                width: 220; height: 220
                anchors.horizontalCenter: parent.horizontalCenter
                Repeater {
                    model: o.animationImgView ? o.animationImgView.subviews : []
                    delegate: KitAnimation { view: modelData; anchors.fill: parent }
                }
            }
            KitLabel { view: o.scanHeadLbl; width: parent.width; horizontalAlignment: Text.AlignHCenter; font.pixelSize: 20; font.weight: Font.Bold }
            KitLabel { view: o.scanSubheadingLbl; width: parent.width; horizontalAlignment: Text.AlignHCenter; color: Theme.secondaryText }
            KitLabel { view: o.progressLbl; width: parent.width; horizontalAlignment: Text.AlignHCenter; font.pixelSize: 22; color: Theme.accent }
        }
    }

    // The find prompt over its dimming layer.
    KitPanel { view: o.hideView; anchors.fill: parent; color: "#66000000"; MouseArea { anchors.fill: parent } }
    KitPanel {
        view: o.findPhotoView
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: parent.bottom
        height: 300
        color: "white"
        radius: 20
        Column {
            anchors.fill: parent
            anchors.margins: 24
            spacing: 14
            KitLabel { view: o.cleanHeadLbl; font.pixelSize: 24; font.weight: Font.Bold }
            KitLabel { view: o.cleanSubheadingLbl; width: parent.width; wrapMode: Text.WordWrap; color: Theme.secondaryText }
            KitButton { view: o.findBtn; filled: true; width: parent.width }
        }
    }

    // The confirmation popup.
    KitPanel {
        view: o.deletePopView
        anchors.centerIn: parent
        width: parent.width - 60
        height: (o.popupHeightDeleteConstraint ? o.popupHeightDeleteConstraint.constant : 200) + 140
        color: "white"
        radius: 16
        Column {
            anchors.fill: parent
            anchors.margins: 20
            spacing: 12
            Item {
                width: 120; height: 120
                anchors.horizontalCenter: parent.horizontalCenter
                Repeater {
                    model: o.deleteImgView ? o.deleteImgView.subviews : []
                    delegate: KitAnimation { view: modelData; anchors.fill: parent }
                }
            }
            KitLabel { view: o.deletePopTitle; width: parent.width; horizontalAlignment: Text.AlignHCenter; font.pixelSize: 18; font.weight: Font.Bold }
            KitButton { view: o.deleteButton; filled: true; width: parent.width }
            KitButton { view: o.cancelButton; width: parent.width }
        }
    }

    // The finished popup (the outlet's name is the storyboard's).
    KitPanel {
        view: o.adsView
        anchors.centerIn: parent
        width: parent.width - 60
        height: 340
        color: "white"
        radius: 16
        Column {
            anchors.fill: parent
            anchors.margins: 20
            spacing: 14
            Item {
                width: 160; height: 160
                anchors.horizontalCenter: parent.horizontalCenter
                Repeater {
                    model: o.animationImageView ? o.animationImageView.subviews : []
                    delegate: KitAnimation { view: modelData; anchors.fill: parent }
                }
            }
            KitLabel { view: o.cleanDataLbl; width: parent.width; horizontalAlignment: Text.AlignHCenter; wrapMode: Text.WordWrap; font.pixelSize: 18; font.weight: Font.Bold }
            KitButton { view: o.okBtnOutlet; filled: true; width: parent.width }
        }
    }
}
