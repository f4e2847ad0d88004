// The address book: the welcome page with its animation, or the list with its search bar,
// count and import button. A long press on a row starts selecting; a tap ticks a row or opens
// the card.
import QtQuick
import QtQuick.Controls
import "components"

Page {
    id: page
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle { color: "white" }

    NavBar { id: bar; width: parent.width; backButton: o.backbtn; titleLabel: o.titleLbl }

    KitSearchBar {
        id: search
        view: o.searchBar
        anchors.top: bar.bottom
        anchors.left: parent.left; anchors.right: parent.right; anchors.margins: Theme.margin
        visible: !!o.contactTable && !o.contactTable.hidden
    }
    KitLabel {
        id: count
        view: o.totalCount
        anchors.top: search.bottom; anchors.topMargin: 6
        x: Theme.margin
        color: Theme.secondaryText
        font.pixelSize: 14
    }

    KitTable {
        id: table
        view: o.contactTable
        anchors.top: count.bottom; anchors.topMargin: 6
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: importButton.top
        cellDelegate: Component {
            Rectangle {
                readonly property var c: cell ? cell.outlets : ({})
                color: "white"
                KitImage { view: c.contactImg; x: Theme.margin; width: 44; height: 44; anchors.verticalCenter: parent.verticalCenter }
                Column {
                    x: Theme.margin + 56
                    anchors.verticalCenter: parent.verticalCenter
                    spacing: 4
                    KitLabel { view: c.name; font.pixelSize: 17; font.weight: Font.DemiBold }
                    KitLabel { view: c.contactNumber; font.pixelSize: 14; color: Theme.secondaryText }
                }
                KitImage { view: c.infoImg; width: 24; height: 24; anchors.right: parent.right; anchors.rightMargin: Theme.margin; anchors.verticalCenter: parent.verticalCenter }
                KitImage { view: c.statusImg; width: 26; height: 26; anchors.right: parent.right; anchors.rightMargin: Theme.margin; anchors.verticalCenter: parent.verticalCenter }
                Rectangle { width: parent.width; height: 1; color: "#EEEEEE"; anchors.bottom: parent.bottom }
                MouseArea {
                    anchors.fill: parent
                    onClicked: table.view.model.select(rowIndex)
                    onPressAndHold: {
                        table.view.longPress(1, 10, rowIndex * 80 + 40)
                        table.view.longPress(3, 10, rowIndex * 80 + 40)
                    }
                }
            }
        }
    }

    Column {
        anchors.centerIn: table
        visible: !!o.noDataView && !o.noDataView.hidden
        KitLabel { view: o.noDataLbl; color: Theme.secondaryText; font.pixelSize: 18 }
    }

    // The welcome page, when the screen is opened with no mode.
    Item {
        anchors.top: bar.bottom; anchors.bottom: importButton.top
        anchors.left: parent.left; anchors.right: parent.right
        visible: !!o.secretContactMainView && !o.secretContactMainView.hidden
        Repeater {
            model: o.contactAnimationView ? o.contactAnimationView.subviews : []
            delegate: KitAnimation { view: modelData; width: parent.width; height: 300 }
        }
        KitButton { view: o.closeButton; anchors.right: parent.right; anchors.top: parent.top }
        KitButton { view: o.openContactButton; filled: true; anchors.bottom: parent.bottom; anchors.horizontalCenter: parent.horizontalCenter; anchors.bottomMargin: 20 }
    }

    KitButton {
        id: importButton
        view: o.impotBtn
        filled: true
        anchors.bottom: banner.top; anchors.bottomMargin: 8
        anchors.horizontalCenter: parent.horizontalCenter
        width: parent.width - 2 * Theme.margin
    }
    BannerSlot { id: banner; view: o.adsView; anchors.bottom: parent.bottom; width: parent.width }
}
