// The forms of dates and times, by language. As the Unicode consortium's locale data (CLDR 42) has
// them: the long form of the date, the short one of the time.
#include "notify/date_forms.h"

#include <algorithm>
#include <cstddef>

#include "base/language_tag.h"

namespace notify {
namespace {

// In the forms: %d day, %B month's name, %m month's number, %Y year; %H hour with two digits, %k
// with one or two, %l of twelve, %M minute, %p AM or PM.
struct Form {
  std::string_view tags;  // in lower case, separated by commas
  std::string_view date;
  std::string_view time;
  std::string_view months;  // as they stand in a date, separated by commas
};

// clang-format off
constexpr Form kForms[] = {
    {"bg", "%d %B %Y г.", "%k:%M ч.",
     "януари,февруари,март,април,май,юни,юли,август,септември,октомври,ноември,декември"},
    {"ca", "%d %B de %Y", "%k:%M",
     "de gener,de febrer,de març,d’abril,de maig,de juny,de juliol,d’agost,de setembre,d’octubre,de novembre,de desembre"},
    {"cs", "%d. %B %Y", "%k:%M",
     "ledna,února,března,dubna,května,června,července,srpna,září,října,listopadu,prosince"},
    {"da", "%d. %B %Y", "%H.%M",
     "januar,februar,marts,april,maj,juni,juli,august,september,oktober,november,december"},
    {"de", "%d. %B %Y", "%H:%M",
     "Januar,Februar,März,April,Mai,Juni,Juli,August,September,Oktober,November,Dezember"},
    {"de-at", "%d. %B %Y", "%H:%M",
     "Jänner,Februar,März,April,Mai,Juni,Juli,August,September,Oktober,November,Dezember"},
    {"el", "%d %B %Y", "%H:%M",
     "Ιανουαρίου,Φεβρουαρίου,Μαρτίου,Απριλίου,Μαΐου,Ιουνίου,Ιουλίου,Αυγούστου,Σεπτεμβρίου,Οκτωβρίου,Νοεμβρίου,Δεκεμβρίου"},
    {"en", "%B %d, %Y", "%l:%M %p",
     "January,February,March,April,May,June,July,August,September,October,November,December"},
    {"en-gb,en-ie,en-za", "%d %B %Y", "%H:%M",
     "January,February,March,April,May,June,July,August,September,October,November,December"},
    {"en-au,en-nz,en-in", "%d %B %Y", "%l:%M %p",
     "January,February,March,April,May,June,July,August,September,October,November,December"},
    {"es", "%d de %B de %Y", "%k:%M",
     "enero,febrero,marzo,abril,mayo,junio,julio,agosto,septiembre,octubre,noviembre,diciembre"},
    {"et", "%d. %B %Y", "%H:%M",
     "jaanuar,veebruar,märts,aprill,mai,juuni,juuli,august,september,oktoober,november,detsember"},
    {"fi", "%d. %B %Y", "%k.%M",
     "tammikuuta,helmikuuta,maaliskuuta,huhtikuuta,toukokuuta,kesäkuuta,heinäkuuta,elokuuta,syyskuuta,lokakuuta,marraskuuta,joulukuuta"},
    {"fr", "%d %B %Y", "%H:%M",
     "janvier,février,mars,avril,mai,juin,juillet,août,septembre,octobre,novembre,décembre"},
    {"fr-ca", "%d %B %Y", "%H h %M",
     "janvier,février,mars,avril,mai,juin,juillet,août,septembre,octobre,novembre,décembre"},
    {"hr", "%d. %B %Y.", "%H:%M",
     "siječnja,veljače,ožujka,travnja,svibnja,lipnja,srpnja,kolovoza,rujna,listopada,studenoga,prosinca"},
    {"hu", "%Y. %B %d.", "%k:%M",
     "január,február,március,április,május,június,július,augusztus,szeptember,október,november,december"},
    {"is", "%d. %B %Y", "%H:%M",
     "janúar,febrúar,mars,apríl,maí,júní,júlí,ágúst,september,október,nóvember,desember"},
    {"it", "%d %B %Y", "%H:%M",
     "gennaio,febbraio,marzo,aprile,maggio,giugno,luglio,agosto,settembre,ottobre,novembre,dicembre"},
    {"ja", "%Y年%m月%d日", "%k:%M",
     ""},
    {"ko", "%Y년 %m월 %d일", "%H:%M",
     ""},
    {"lt", "%Y m. %B %d d.", "%H:%M",
     "sausio,vasario,kovo,balandžio,gegužės,birželio,liepos,rugpjūčio,rugsėjo,spalio,lapkričio,gruodžio"},
    {"lv", "%Y. gada %d. %B", "%H:%M",
     "janvāris,februāris,marts,aprīlis,maijs,jūnijs,jūlijs,augusts,septembris,oktobris,novembris,decembris"},
    {"nb,no", "%d. %B %Y", "%H:%M",
     "januar,februar,mars,april,mai,juni,juli,august,september,oktober,november,desember"},
    {"nl", "%d %B %Y", "%H:%M",
     "januari,februari,maart,april,mei,juni,juli,augustus,september,oktober,november,december"},
    {"nn", "%d. %B %Y", "%H:%M",
     "januar,februar,mars,april,mai,juni,juli,august,september,oktober,november,desember"},
    {"pl", "%d %B %Y", "%H:%M",
     "stycznia,lutego,marca,kwietnia,maja,czerwca,lipca,sierpnia,września,października,listopada,grudnia"},
    {"pt", "%d de %B de %Y", "%H:%M",
     "janeiro,fevereiro,março,abril,maio,junho,julho,agosto,setembro,outubro,novembro,dezembro"},
    {"ro", "%d %B %Y", "%H:%M",
     "ianuarie,februarie,martie,aprilie,mai,iunie,iulie,august,septembrie,octombrie,noiembrie,decembrie"},
    {"ru", "%d %B %Y г.", "%H:%M",
     "января,февраля,марта,апреля,мая,июня,июля,августа,сентября,октября,ноября,декабря"},
    {"sk", "%d. %B %Y", "%k:%M",
     "januára,februára,marca,apríla,mája,júna,júla,augusta,septembra,októbra,novembra,decembra"},
    {"sl", "%d. %B %Y", "%H:%M",
     "januar,februar,marec,april,maj,junij,julij,avgust,september,oktober,november,december"},
    {"sr", "%d. %B %Y.", "%H:%M",
     "januar,februar,mart,april,maj,jun,jul,avgust,septembar,oktobar,novembar,decembar"},
    {"sv", "%d %B %Y", "%H:%M",
     "januari,februari,mars,april,maj,juni,juli,augusti,september,oktober,november,december"},
    {"tr", "%d %B %Y", "%H:%M",
     "Ocak,Şubat,Mart,Nisan,Mayıs,Haziran,Temmuz,Ağustos,Eylül,Ekim,Kasım,Aralık"},
    {"uk", "%d %B %Y р.", "%H:%M",
     "січня,лютого,березня,квітня,травня,червня,липня,серпня,вересня,жовтня,листопада,грудня"},
    {"zh", "%Y年%m月%d日", "%H:%M",
     ""},
};
// clang-format on

constexpr Form kNoLanguage = {"", "%Y-%m-%d", "%H:%M", ""};
constexpr int kHoursOfHalfDay = 12;

std::string_view partOf(std::string_view list, int index) {
  for (; index > 0; --index) list.remove_prefix(std::min(list.find(',') + 1, list.size()));
  return list.substr(0, list.find(','));
}

bool lists(std::string_view tags, std::string_view tag) {
  while (true) {
    const std::size_t end = tags.find(',');
    if (tags.substr(0, end) == tag) return true;
    if (end == std::string_view::npos) return false;
    tags.remove_prefix(end + 1);
  }
}

const Form& formOf(const std::string& language) {
  for (const std::string& tag : base::matchingTags(language)) {
    for (const Form& form : kForms) {
      if (lists(form.tags, tag)) return form;
    }
  }
  return kNoLanguage;
}

// With noughts before it, up to so many digits.
void appendNumber(std::string& text, int number, std::size_t digits) {
  const std::string figures = std::to_string(number);
  text.append(digits - std::min(digits, figures.size()), '0').append(figures);
}

void appendField(std::string& text, char field, const Form& form, const base::LocalTime& time) {
  const std::size_t dayDigits = form.tags.empty() ? 2 : 1;
  switch (field) {
    case 'd':
      return appendNumber(text, time.day, dayDigits);
    case 'm':
      return appendNumber(text, time.month, dayDigits);
    case 'B':
      text += partOf(form.months, time.month - 1);
      return;
    case 'Y':
      return appendNumber(text, time.year, 4);
    case 'H':
      return appendNumber(text, time.hour, 2);
    case 'k':
      return appendNumber(text, time.hour, 1);
    case 'l':
      return appendNumber(text, (time.hour + kHoursOfHalfDay - 1) % kHoursOfHalfDay + 1, 1);
    case 'M':
      return appendNumber(text, time.minute, 2);
    default:
      text += time.hour < kHoursOfHalfDay ? "AM" : "PM";
  }
}

std::string filled(std::string_view pattern, const Form& form, const base::LocalTime& time) {
  std::string text;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] == '%' && i + 1 < pattern.size()) {
      appendField(text, pattern[++i], form, time);
    } else {
      text += pattern[i];
    }
  }
  return text;
}

}  // namespace

std::string dateText(const base::LocalTime& time, const std::string& language) {
  const Form& form = formOf(language);
  return filled(form.date, form, time);
}

std::string timeText(const base::LocalTime& time, const std::string& language) {
  const Form& form = formOf(language);
  return filled(form.time, form, time);
}

}  // namespace notify
