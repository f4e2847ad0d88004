// The hub: the figures, the three features and the banner.
import QtQuick
import QtQuick.Controls
import "components"

Page {
    id: page
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle { color: "white" }

    Item {
        id: header
        width: parent.width
        height: 64
        Text {
            text: "Solvanta"
            font.pixelSize: 28; font.weight: Font.Bold; color: Theme.text
            anchors.left: parent.left; anchors.leftMargin: Theme.margin
            anchors.verticalCenter: parent.verticalCenter
        }
        KitButton {
            view: o.menuButton
            anchors.right: parent.right; anchors.rightMargin: 12
            anchors.verticalCenter: parent.verticalCenter
        }
    }

    Rectangle {
        id: figures
        anchors.top: header.bottom
        anchors.left: parent.left; anchors.right: parent.right
        anchors.margins: Theme.margin
        height: 150
        radius: 16
        color: Theme.card
        Column {
            anchors.fill: parent
            anchors.margins: 16
            spacing: 8
            KitLabel { view: o.totalPhotoCount; font.pixelSize: 18; font.weight: Font.DemiBold }
            KitLabel { view: o.totalVideoCount; font.pixelSize: 18; font.weight: Font.DemiBold }
            KitLabel { view: o.totalContactCount; color: Theme.secondaryText }
            Row {
                spacing: 24
                Column {
                    Text { text: "Free"; color: Theme.secondaryText; font.pixelSize: 13 }
                    KitLabel { view: o.usedSpace; font.pixelSize: 17 }
                }
                Column {
                    Text { text: "Used"; color: Theme.secondaryText; font.pixelSize: 13 }
                    KitLabel { view: o.usedRam; font.pixelSize: 17 }
                }
            }
        }
    }

    Column {
        anchors.top: figures.bottom
        anchors.topMargin: 24
        anchors.left: parent.left; anchors.right: parent.right
        anchors.leftMargin: Theme.margin; anchors.rightMargin: Theme.margin
        spacing: 14
        Repeater {
            model: [
                { outlet: "photoButton", title: "Duplicate Photos", detail: "Shots taken seconds apart", icon: "photos" },
                { outlet: "videoButton", title: "Duplicate Videos", detail: "Neighbours of the same length", icon: "videos" },
                { outlet: "secretButton", title: "Secret Space", detail: "Hidden behind a PIN", icon: "vault" }
            ]
            delegate: Rectangle {
                width: parent.width
                height: 84
                radius: 16
                color: mouse.pressed ? "#DCE9FB" : Theme.card
                Image {
                    id: icon
                    source: "image://kit/named/" + modelData.icon
                    width: 44; height: 44
                    anchors.left: parent.left; anchors.leftMargin: 16
                    anchors.verticalCenter: parent.verticalCenter
                }
                Column {
                    anchors.left: icon.right; anchors.leftMargin: 14
                    anchors.right: parent.right; anchors.rightMargin: 16
                    anchors.verticalCenter: parent.verticalCenter
                    spacing: 4
                    Text { text: modelData.title; font.pixelSize: 18; font.weight: Font.DemiBold; color: Theme.text }
                    Text { text: modelData.detail; font.pixelSize: 13; color: Theme.secondaryText; elide: Text.ElideRight; width: parent.width }
                }
                MouseArea { id: mouse; anchors.fill: parent; onClicked: page.screen.tap(modelData.outlet) }
            }
        }
    }

    BannerSlot {
        view: o.adsView
        heightConstraint: o.adsheightConstarint
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: parent.bottom
    }
}
