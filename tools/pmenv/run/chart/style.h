// style.h - how a chart's page looks: on light and dark screens, on paper, and without colours.
#pragma once

/// A style sheet without < and &, so that it may stand in XML as it is.
extern const char* const kChartStyle;
