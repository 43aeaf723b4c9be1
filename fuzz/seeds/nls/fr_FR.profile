# Message catalog: French (France), UTF-8.
# Read with DX_NLSListCreate; the date and time printers take their names
# and default layouts from the sections "datef" and "timef".
#
# Layout words: %dm day of month, %dw day of week number, %dn/%DN short/long
# day name, %mn/%MN short/long month name, %my month number (0-based),
# %ye 2-digit year, %YE full year, %wm week of month; %ap AM/PM, %h1 12-hour,
# %h2 24-hour, %mi minutes, %se seconds.  A width ("%2dm"), "-", "+" or "*"
# may come between "%" and the word.

[datef]
day = {dim.,lun.,mar.,mer.,jeu.,ven.,sam.}
DAY = {dimanche,lundi,mardi,mercredi,jeudi,vendredi,samedi}
month = {janv.,févr.,mars,avr.,mai,juin,juil.,août,sept.,oct.,nov.,déc.}
MONTH = {janvier,février,mars,avril,mai,juin,juillet,août,septembre,octobre,novembre,décembre}
date = "%dm %mn %YE"
DATE = "%DN %dm %MN %YE"

[timef]
ap = {AM,PM}
time = "%h2:%mi"
TIME = "%h2:%mi:%se"
