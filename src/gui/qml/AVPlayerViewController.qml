// The presented movie player: it plays the stored file while the screen says so, and seeks
// when the playhead is moved.
import QtQuick
import QtQuick.Controls
import QtMultimedia
import "components"

Rectangle {
    id: root
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    readonly property bool wantsPlay: !!o.playPauseButton && o.playPauseButton.title === "Pause"
    color: "black"
    MouseArea { anchors.fill: parent }

    MediaPlayer {
        id: player
        source: o.urlLbl ? o.urlLbl.text : ""
        videoOutput: output
        audioOutput: AudioOutput {}
    }
    VideoOutput { id: output; anchors.fill: parent; anchors.bottomMargin: 90 }
    // The picture of a stored still shows where the file holds no movie.
    Image {
        anchors.fill: output
        fillMode: Image.PreserveAspectFit
        visible: player.error !== MediaPlayer.NoError
        source: o.urlLbl ? o.urlLbl.text : ""
    }

    onWantsPlayChanged: wantsPlay ? player.play() : player.pause()
    Component.onCompleted: if (wantsPlay) player.play()
    Connections {
        target: o.timeLbl ? o.timeLbl : null
        function onChanged() {
            var parts = o.timeLbl.text.split(":")
            var ms = (parseInt(parts[0]) * 60 + parseInt(parts[1])) * 1000
            if (Math.abs(ms - player.position) > 1500) player.position = ms
        }
    }

    KitButton { view: o.closeButton; anchors.left: parent.left; anchors.top: parent.top; anchors.margins: 12 }
    Row {
        anchors.bottom: parent.bottom; anchors.bottomMargin: 24
        anchors.horizontalCenter: parent.horizontalCenter
        spacing: 18
        KitButton { view: o.seekBackButton; width: 64 }
        KitButton { view: o.playPauseButton; filled: true; width: 96 }
        KitButton { view: o.seekForwardButton; width: 64 }
        Text { color: "white"; text: Math.floor(player.position / 60000) + ":" + ("0" + Math.floor(player.position / 1000) % 60).slice(-2); anchors.verticalCenter: parent.verticalCenter }
    }
}
