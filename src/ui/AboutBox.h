#pragma once

class QWidget;

// The About box: the program's icon, name and version, and "Created by" its maker, linked to the home
// page. Opened window-modal over `parent` without blocking; object name "about".
void showAboutBox(QWidget* parent);
