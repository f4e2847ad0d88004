// An image view outlet.
import QtQuick

Image {
    property var view
    visible: !!view && !view.hidden
    source: view ? view.image : ""
    fillMode: Image.PreserveAspectFit
    asynchronous: true
}
