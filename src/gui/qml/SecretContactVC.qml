// The hidden contacts: search, count, the list (a long press starts selecting), and Add
// Contacts, or Select All and Delete while selecting.
import QtQuick
import QtQuick.Controls
import "components"

Page {
    id: page
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle { color: "white" }

    NavBar { id: bar; width: parent.width; backButton: o.backButton; titleLabel: o.titleLbl; rightButton: o.selectAllStatus }

    KitSearchBar {
        id: search
        view: o.searchContact
        anchors.top: bar.bottom
        anchors.left: parent.left; anchors.right: parent.right; anchors.margins: Theme.margin
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
        view: o.duplicateContactTable
        anchors.top: count.bottom; anchors.topMargin: 6
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: buttons.top
        cellDelegate: Component {
            Rectangle {
                readonly property var c: cell ? cell.outlets : ({})
                color: "white"
                KitImage { view: c.cnImg; x: Theme.margin; width: 48; height: 48; anchors.verticalCenter: parent.verticalCenter }
                Column {
                    x: Theme.margin + 60
                    anchors.verticalCenter: parent.verticalCenter
                    spacing: 4
                    KitLabel { view: c.cnName; font.pixelSize: 17; font.weight: Font.DemiBold }
                    KitLabel { view: c.cnNumber; font.pixelSize: 14; color: Theme.secondaryText }
                }
                KitImage { view: c.statusImg; width: 26; height: 26; anchors.right: parent.right; anchors.rightMargin: Theme.margin; anchors.verticalCenter: parent.verticalCenter }
                Rectangle { width: parent.width; height: 1; color: "#EEEEEE"; anchors.bottom: parent.bottom }
                MouseArea {
                    anchors.fill: parent
                    onClicked: table.view.model.select(rowIndex)
                    onPressAndHold: {
                        table.view.longPress(1, 10, rowIndex * 90 + 45)
                        table.view.longPress(3, 10, rowIndex * 90 + 45)
                    }
                }
            }
        }
    }

    Column {
        anchors.centerIn: table
        spacing: 12
        visible: !!o.noDataView && !o.noDataView.hidden
        KitImage { view: o.noDataImg; width: 96; height: 96; anchors.horizontalCenter: parent.horizontalCenter }
        KitLabel { view: o.noDataLbl; color: Theme.secondaryText; font.pixelSize: 18 }
    }

    Item {
        id: buttons
        anchors.bottom: banner.top; anchors.bottomMargin: 8
        width: parent.width; height: 53
        KitButton { view: o.addNewBtn; filled: true; anchors.centerIn: parent; width: parent.width - 2 * Theme.margin }
        KitButton { view: o.deleteContactButton; filled: true; anchors.centerIn: parent; width: parent.width - 2 * Theme.margin }
    }
    BannerSlot { id: banner; view: o.adsView; anchors.bottom: parent.bottom; width: parent.width }
}
