// The demo program that krvdbg debugs: a shop fills a small cart with items
// in a loop, reports each step on the console, and recovers when the cart
// refuses an item (the cart throws, the shop catches).
package demo;

public class Shop {
    private final String name;
    private final Cart cart;
    private int refused;

    public Shop(String name, int capacity) {
        this.name = name;
        this.cart = new Cart(capacity);
    }

    public String getName() {
        return name;
    }

    public Cart getCart() {
        return cart;
    }

    void fill(String[] names, int[] prices) {
        for (int i = 0; i < names.length; i++) {
            Item item = new Item(names[i], prices[i]);           // @shop-item
            try {
                cart.add(item);                                   // @shop-add
                System.out.println("Added " + item);                  // @shop-added
            } catch (CartFullException e) {
                refused++;                                        // @shop-caught
                System.out.println("Refused " + item.getName() + ": " + e.getMessage());
            }
        }
    }

    public static void main(String[] args) {
        Shop shop = new Shop("Corner Shop", 3);                   // @main-shop
        System.out.println("Welcome to the " + shop.getName());
        shop.fill(new String[] {"apple", "bread", "cheese", "dates"}, new int[] {120, 250, 480, 310}); // @main-fill
        Cart cart = shop.getCart();
        System.out.println("Total: " + cart.getTotal() + " cents for " + cart.getCount() + " items"); // @main-total
        System.out.println("Refused: " + shop.refused);
    }
}
