// The camera view over the window: the first camera's picture, and buttons to take a photo,
// record a movie or close. What it makes goes to `cameraBridge`.
import QtQuick
import QtQuick.Controls
import QtMultimedia
import "components"

Rectangle {
    id: view
    color: "black"
    readonly property bool recording: recorder.recorderState === MediaRecorder.RecordingState

    // Any press outside the buttons stays here.
    MouseArea { anchors.fill: parent }

    CaptureSession {
        camera: Camera {
            active: true
            onErrorOccurred: function (error, errorString) { status.text = errorString }
        }
        imageCapture: ImageCapture {
            id: imageCapture
            onImageSaved: function (requestId, path) { cameraBridge.photoTaken(path) }
            onErrorOccurred: function (requestId, error, message) { status.text = message }
        }
        recorder: MediaRecorder {
            id: recorder
            onRecorderStateChanged: function (state) {
                if (state === MediaRecorder.StoppedState && recorder.actualLocation.toString() !== "")
                    cameraBridge.movieRecorded(recorder.actualLocation)
            }
            onErrorOccurred: function (error, errorString) { status.text = errorString }
        }
        videoOutput: output
    }

    VideoOutput {
        id: output
        anchors.fill: parent
        fillMode: VideoOutput.PreserveAspectFit
    }

    Text {
        id: status
        anchors { top: parent.top; topMargin: 60; horizontalCenter: parent.horizontalCenter }
        width: parent.width - 40
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
        color: "white"
        font.pixelSize: 15
    }

    Row {
        anchors { bottom: parent.bottom; bottomMargin: 40; horizontalCenter: parent.horizontalCenter }
        spacing: 16
        Button {
            text: "Cancel"
            enabled: !view.recording
            onClicked: cameraBridge.close()
        }
        Button {
            text: "Photo"
            enabled: !view.recording && imageCapture.readyForCapture
            onClicked: {
                var file = cameraBridge.newFile("jpg")
                if (file === "") { status.text = "The photo could not be saved."; return }
                imageCapture.captureToFile(file)
            }
        }
        Button {
            text: view.recording ? "Stop" : "Video"
            onClicked: {
                if (view.recording) { recorder.stop(); return }
                var file = cameraBridge.newFile("mp4")
                if (file === "") { status.text = "The video could not be saved."; return }
                recorder.outputLocation = cameraBridge.fileUrl(file)
                recorder.record()
            }
        }
    }
}
