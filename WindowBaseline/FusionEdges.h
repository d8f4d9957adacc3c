#pragma once

namespace window_baseline {

/// Qt's own style draws the edges of fields and buttons in a darker shade of the window's colour, and black
/// has none; and it marks the row of a list that has the keyboard in the colour that a selected one has
/// already. With this both can be seen. A desktop's own style is left as it is. To be called once there is an
/// application.
void showFusionsEdges();

}  // namespace window_baseline
