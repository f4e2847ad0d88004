// The gallery picker: the library as a grid with check marks, select-all and import.
import QtQuick
import QtQuick.Controls
import "components"

Page {
    id: page
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle { color: "white" }

    NavBar { id: bar; width: parent.width; backButton: o.pushBackbtn; titleLabel: o.lblScreenTitle }

    Row {
        id: counts
        anchors.top: bar.bottom; anchors.topMargin: 6
        anchors.left: parent.left; anchors.leftMargin: Theme.margin
        spacing: 16
        KitLabel { view: o.lblItemCount; font.pixelSize: 15; font.weight: Font.DemiBold }
        KitLabel { view: o.imageSelectionlabel; font.pixelSize: 15; color: Theme.accent }
    }
    KitButton { view: o.selectAllButton; anchors.right: parent.right; anchors.rightMargin: Theme.margin; anchors.verticalCenter: counts.verticalCenter }

    KitGrid {
        view: o.galleryCollectionView
        anchors.top: counts.bottom; anchors.topMargin: 10
        anchors.left: parent.left; anchors.right: parent.right
        anchors.leftMargin: 4; anchors.rightMargin: 4
        anchors.bottom: importBar.top
        itemDelegate: Component {
            Item {
                readonly property var t: cell ? cell.outlets : ({})
                Rectangle {
                    anchors.fill: parent; anchors.margins: 2
                    radius: 12; clip: true; color: Theme.card
                    KitImage { view: t.photoImageView; anchors.fill: parent; fillMode: Image.PreserveAspectCrop }
                    KitImage { view: t.checkmarkImageView; width: 24; height: 24; anchors.right: parent.right; anchors.top: parent.top; anchors.margins: 6 }
                    MouseArea { anchors.fill: parent; onClicked: if (cell) listModel.select(itemIndex) }
                }
            }
        }
    }

    Item {
        id: importBar
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: banner.top
        height: 76
        KitButton { view: o.importBtn; filled: true; anchors.centerIn: parent; width: parent.width - 2 * Theme.margin; height: 50 }
    }

    BannerSlot {
        id: banner
        view: o.adsView
        heightConstraint: o.adHeightConstraint
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: parent.bottom
    }
}
