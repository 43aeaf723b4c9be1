# Message catalog: English (United States).
# Read with DX_NLSListCreate; the date and time printers take their names
# and default layouts from the sections "datef" and "timef".
#
# Layout words: %dm day of month, %dw day of week number, %dn/%DN short/long
# day name, %mn/%MN short/long month name, %my month number (0-based),
# %ye 2-digit year, %YE full year, %wm week of month; %ap AM/PM, %h1 12-hour,
# %h2 24-hour, %mi minutes, %se seconds.  A width ("%2dm"), "-", "+" or "*"
# may come between "%" and the word.

[datef]
day = {Sun,Mon,Tue,Wed,Thu,Fri,Sat}
DAY = {Sunday,Monday,Tuesday,Wednesday,Thursday,Friday,Saturday}
month = {Jan,Feb,Mar,Apr,May,Jun,Jul,Aug,Sep,Oct,Nov,Dec}
MONTH = {January,February,March,April,May,June,July,August,September,October,November,December}
date = "%mn %dm, %YE"
DATE = "%DN, %MN %dm, %YE"

[timef]
ap = {AM,PM}
time = "%h1:%mi %ap"
TIME = "%h2:%mi:%se"
