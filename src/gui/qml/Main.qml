// The window: the navigation stack of the app's root, presented controllers over it, toasts
// and the progress HUD. Everything it shows comes from `app` (the AppBridge).
import QtQuick
import QtQuick.Controls
import "components"

ApplicationWindow {
    id: window
    width: 390
    height: 844
    visible: true
    title: "Solvanta"
    color: "white"
    palette.highlight: Theme.accent

    StackView {
        id: stack
        anchors.fill: parent

        function pageFor(screen) {
            return Qt.createComponent(app.screenFile(screen.identifier))
        }
        // Brings the StackView in line with the kit's stack: one push, pops to a common
        // prefix, or a fresh set.
        function sync(kind, animated) {
            var screens = app.stack
            var common = 0
            while (common < depth && common < screens.length && get(common, StackView.ForceLoad).screen === screens[common])
                common++
            var op = animated ? (kind === 1 ? StackView.PopTransition : StackView.PushTransition) : StackView.Immediate
            if (common === depth && screens.length === depth + 1) {
                push(pageFor(screens[depth]), { "screen": screens[depth] }, op)
                return
            }
            if (common === screens.length && common > 0 && common < depth) {
                pop(get(common - 1), op)
                return
            }
            if (common === depth && common === screens.length)
                return
            var items = []
            for (var i = 0; i < screens.length; i++)
                items.push({ "item": pageFor(screens[i]), "properties": { "screen": screens[i] } })
            clear(StackView.Immediate)
            for (var k = 0; k < items.length; k++)
                push(items[k].item, items[k].properties, StackView.Immediate)
        }
        Component.onCompleted: sync(2, false)
    }

    Connections {
        target: app
        function onStackChanged(kind, animated) { stack.sync(kind, animated) }
    }

    // Presented controllers, newest on top.
    Repeater {
        model: app.overlays
        delegate: Loader {
            anchors.fill: parent
            z: 10 + index
            source: modelData.kind === "alert" ? "Alert.qml" : app.screenFile(modelData.identifier)
            onLoaded: item.screen = modelData
        }
    }

    // Toasts, in the column of their position.
    Repeater {
        model: ["top", "center", "bottom"]
        delegate: Column {
            id: toastColumn
            readonly property string place: modelData
            z: 100
            spacing: 8
            anchors.horizontalCenter: parent.horizontalCenter
            y: place === "top" ? 70 : place === "center" ? (window.height - height) / 2 : window.height - height - 90
            Repeater {
                model: app.toasts.filter(function (t) { return t.position === toastColumn.place })
                delegate: Rectangle {
                    radius: 10
                    color: "#CC000000"
                    width: Math.min(window.width - 40, toastText.implicitWidth + 32)
                    height: toastText.implicitHeight + 20
                    Text {
                        id: toastText
                        anchors.centerIn: parent
                        width: Math.min(implicitWidth, window.width - 72)
                        wrapMode: Text.WordWrap
                        color: "white"
                        font.pixelSize: 15
                        text: (modelData.title ? modelData.title + "\n" : "") + modelData.message
                    }
                    MouseArea { anchors.fill: parent; onClicked: app.tapToast(modelData.id) }
                }
            }
        }
    }

    // The progress HUD.
    Rectangle {
        z: 200
        anchors.fill: parent
        visible: app.hudVisible
        color: "#33000000"
        MouseArea { anchors.fill: parent }
        Rectangle {
            anchors.centerIn: parent
            width: 140; height: 120; radius: 14
            color: "white"
            Column {
                anchors.centerIn: parent
                spacing: 10
                BusyIndicator { running: app.hudStyle === "activity"; visible: running; anchors.horizontalCenter: parent.horizontalCenter }
                Text {
                    visible: app.hudStyle !== "activity"
                    anchors.horizontalCenter: parent.horizontalCenter
                    text: app.hudStyle === "success" ? "\u2713" : app.hudStyle === "error" ? "\u2715" : "i"
                    font.pixelSize: 36; color: Theme.accent
                }
                Text { text: app.hudMessage; visible: text.length > 0; font.pixelSize: 14; anchors.horizontalCenter: parent.horizontalCenter }
            }
        }
    }

    // The camera view, while a capture runs.
    Loader {
        z: 250
        anchors.fill: parent
        // Off unless the bridge says so (a Loader is active by default).
        active: false
        Binding on active { value: cameraBridge.open }
        source: "CameraView.qml"
    }

    // Questions the platform asks (photo access, deletion).
    PromptDialog { z: 300 }
}
