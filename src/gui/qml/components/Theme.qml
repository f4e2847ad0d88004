pragma Singleton
import QtQuick

QtObject {
    readonly property color accent: "#2485EF"
    readonly property color text: "#1C1C1E"
    readonly property color secondaryText: "#6E6E73"
    readonly property color card: "#F2F4F8"
    readonly property int margin: 20
}
